#include "settings/stored_value.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Tamrin::setman {
namespace {

// memcpy requires valid pointers even for zero bytes.
void copy_bytes(void* to, const void* from, std::size_t size) noexcept {
  if (size != 0)
    std::memcpy(to, from, size);
}

// A number whose length does not match its type is damaged.
bool is_number(const stored_value& value) noexcept {
  if (value.type == REG_DWORD)
    return value.bytes.size() == sizeof(std::uint32_t);
  return value.type == REG_QWORD && value.bytes.size() == sizeof(std::uint64_t);
}

}  // namespace

stored_value encode_string(std::wstring_view text) {
  stored_value value{REG_SZ, std::vector<std::byte>(text.size() * sizeof(wchar_t))};
  copy_bytes(value.bytes.data(), text.data(), value.bytes.size());
  return value;
}

stored_value encode_value(const void* data, std::size_t size) {
  stored_value value;
  value.bytes.resize(size);
  copy_bytes(value.bytes.data(), data, size);
  if (size <= sizeof(std::uint32_t)) {
    value.type = REG_DWORD;
    value.bytes.resize(sizeof(std::uint32_t));
  } else if (size <= sizeof(std::uint64_t)) {
    value.type = REG_QWORD;
    value.bytes.resize(sizeof(std::uint64_t));
  }
  return value;
}

std::optional<std::wstring> decode_string(const stored_value& value) {
  if (value.type != REG_SZ)
    return std::nullopt;
  std::wstring text((value.bytes.size() + 1) / sizeof(wchar_t), L'\0');
  copy_bytes(text.data(), value.bytes.data(), value.bytes.size());
  // Other tools store one or more terminating zeros.
  text.erase(text.find_last_not_of(L'\0') + 1);
  return text;
}

bool decode_value(const stored_value& value, void* data, std::size_t size) noexcept {
  const bool exact = value.type == REG_BINARY && value.bytes.size() == size;
  if (!exact && !is_number(value))
    return false;
  const std::size_t copied = std::min(size, value.bytes.size());
  copy_bytes(data, value.bytes.data(), copied);
  std::fill_n(static_cast<std::byte*>(data) + copied, size - copied, std::byte{});
  return true;
}

}  // namespace Tamrin::setman
