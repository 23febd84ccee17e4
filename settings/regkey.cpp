#include "settings/regkey.h"

#include <utility>

#include "settings/folder_creation_error.h"

// After win32.h.
#include <shlwapi.h>

namespace Tamrin::setman {
namespace {

constexpr REGSAM kReadAccess = KEY_READ;
constexpr REGSAM kWriteAccess = KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
static_assert(kReadAccess == 0x20019 && kWriteAccess == 0x2001F);

// In characters, for the name of a value; that of a key has at most 255.
constexpr std::size_t kMaxName = 16383;

// Collects names from index 0 upwards, until the first error.
template <class Enumerate>
std::vector<std::wstring> enumerate_names(Enumerate enumerate) {
  std::vector<std::wstring> names;
  std::wstring name(kMaxName + 1, L'\0');
  for (DWORD index = 0;; ++index) {
    auto length = static_cast<DWORD>(name.size());
    if (enumerate(index, name.data(), &length) != ERROR_SUCCESS)
      return names;
    names.emplace_back(name, 0, length);
  }
}

}  // namespace

const std::shared_ptr<regkey>& hkey_current_user =
    *new std::shared_ptr<regkey>(std::make_shared<regkey>(HKEY_CURRENT_USER));
const std::shared_ptr<regkey>& hkey_local_machine =
    *new std::shared_ptr<regkey>(std::make_shared<regkey>(HKEY_LOCAL_MACHINE));

regkey::regkey(HKEY predefined) noexcept : predefined_(predefined) {}

regkey::regkey(std::shared_ptr<const regkey> root, std::wstring path) noexcept
    : root_(std::move(root)), path_(std::move(path)) {}

std::shared_ptr<abstract_folder> regkey::open_subfolder(const std::wstring& name) {
  if (!root_)
    return std::make_shared<regkey>(shared_from_this(), name);
  return std::make_shared<regkey>(root_, path_ + L"\\" + name);
}

bool regkey::write_string(const std::wstring& name, std::wstring_view text) {
  // RegSetValueExW reads one character past the text, and stores that too if it is a zero.
  const std::wstring guarded = std::wstring(text) + L'.';
  return set(name, REG_SZ, guarded.data(), text.size() * sizeof(wchar_t));
}

bool regkey::write_value(const std::wstring& name, const void* data, std::size_t size) {
  const stored_value value = encode_value(data, size);
  return set(name, value.type, value.bytes.data(), value.bytes.size());
}

std::optional<std::wstring> regkey::read_string(const std::wstring& name) {
  const std::optional<stored_value> value = query(name);
  return value ? decode_string(*value) : std::nullopt;
}

bool regkey::read_value(const std::wstring& name, void* data, std::size_t size) {
  const std::optional<stored_value> value = query(name);
  return value && decode_value(*value, data, size);
}

unique_stream regkey::open_stream(const std::wstring& name, DWORD mode) {
  return unique_stream(::SHOpenRegStream2W(root_key(), path_.c_str(), name.c_str(), mode));
}

bool regkey::delete_folder() {
  // Without a path the whole root would be deleted.
  if (path_.empty())
    return false;
  const std::lock_guard lock(mutex_);
  key_.reset();
  writable_ = false;
  return ::SHDeleteKeyW(root_key(), path_.c_str()) == ERROR_SUCCESS;
}

bool regkey::delete_value(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  return ::RegDeleteValueW(key_for_writing(), name.c_str()) == ERROR_SUCCESS;
}

std::vector<std::wstring> regkey::value_names() {
  const std::lock_guard lock(mutex_);
  const HKEY key = key_for_reading();
  return enumerate_names([key](DWORD index, wchar_t* name, DWORD* length) {
    return ::RegEnumValueW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
  });
}

std::vector<std::wstring> regkey::subfolder_names() {
  const std::lock_guard lock(mutex_);
  const HKEY key = key_for_reading();
  return enumerate_names([key](DWORD index, wchar_t* name, DWORD* length) {
    return ::RegEnumKeyExW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
  });
}

bool regkey::has_value(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  return ::RegQueryValueExW(key_for_reading(), name.c_str(), nullptr, nullptr, nullptr, nullptr) !=
         ERROR_FILE_NOT_FOUND;
}

HKEY regkey::root_key() const noexcept {
  return root_ ? root_->predefined_ : predefined_;
}

HKEY regkey::key_for_reading() {
  if (!key_) {
    key_ = create_key(kReadAccess, "Error opening key");
    writable_ = false;
  }
  return key_.get();
}

HKEY regkey::key_for_writing() {
  if (!key_ || !writable_) {
    key_.reset();
    key_ = create_key(kWriteAccess, "Error creating key");
    writable_ = true;
  }
  return key_.get();
}

unique_registry_key regkey::create_key(REGSAM access, const char* error_message) const {
  HKEY key = nullptr;
  const LSTATUS status =
      ::RegCreateKeyExW(root_key(), path_.c_str(), 0, nullptr, 0, access, nullptr, &key, nullptr);
  if (status != ERROR_SUCCESS)
    throw folder_creation_error(error_message, static_cast<DWORD>(status));
  return unique_registry_key(key);
}

bool regkey::set(const std::wstring& name, DWORD type, const void* data, std::size_t size) {
  if (size > MAXDWORD)
    return false;
  const std::lock_guard lock(mutex_);
  return ::RegSetValueExW(key_for_writing(), name.c_str(), 0, type, static_cast<const BYTE*>(data),
                          static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

// Reads a value with its bytes, again if it has grown since the query of its size.
std::optional<stored_value> regkey::query(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  const HKEY key = key_for_reading();
  stored_value value;
  DWORD size = 0;
  LSTATUS status = ::RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, &size);
  if (status != ERROR_SUCCESS)
    return std::nullopt;
  do {
    // Never empty: without a buffer the call would return only the size.
    value.bytes.resize(size + 2 * sizeof(wchar_t));
    size = static_cast<DWORD>(value.bytes.size());
    status = ::RegQueryValueExW(key, name.c_str(), nullptr, &value.type,
                                reinterpret_cast<BYTE*>(value.bytes.data()), &size);
  } while (status == ERROR_MORE_DATA);
  if (status != ERROR_SUCCESS)
    return std::nullopt;
  value.bytes.resize(size);
  return value;
}

}  // namespace Tamrin::setman
