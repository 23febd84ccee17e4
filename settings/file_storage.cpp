#include "settings/file_storage.h"

#include <utility>

namespace Tamrin::setman {

file_storage::file_storage(std::shared_ptr<directory> root) noexcept
    : directory_(std::move(root)) {}

file_storage::file_storage(std::shared_ptr<directory> parent, std::wstring name)
    : parent_(std::move(parent)),
      name_(std::move(name)),
      directory_(parent_->open_directory(name_)) {}

std::shared_ptr<abstract_folder> file_storage::open_subfolder(const std::wstring& name) {
  std::shared_ptr<directory> parent = directory_;
  std::size_t start = 0;
  for (std::size_t end; (end = name.find(L'\\', start)) != std::wstring::npos; start = end + 1)
    parent = parent->open_directory(name.substr(start, end - start));
  return std::shared_ptr<file_storage>(new file_storage(std::move(parent), name.substr(start)));
}

bool file_storage::write_string(const std::wstring& name, std::wstring_view text) {
  return store(name, encode_string(text));
}

bool file_storage::write_value(const std::wstring& name, const void* data, std::size_t size) {
  return store(name, encode_value(data, size));
}

std::optional<std::wstring> file_storage::read_string(const std::wstring& name) {
  const std::shared_ptr<file> found = directory_->find_file(name);
  return found ? decode_string(found->load()) : std::nullopt;
}

bool file_storage::read_value(const std::wstring& name, void* data, std::size_t size) {
  const std::shared_ptr<file> found = directory_->find_file(name);
  return found && decode_value(found->load(), data, size);
}

unique_stream file_storage::open_stream(const std::wstring& name, DWORD mode) {
  std::shared_ptr<file> opened;
  if (mode == STGM_READ)
    opened = directory_->find_file(name);
  else if (mode == STGM_WRITE || mode == STGM_READWRITE)
    opened = directory_->open_file(name);
  return opened ? opened->open_stream(mode) : unique_stream();
}

bool file_storage::delete_folder() {
  return parent_ && parent_->remove_directory(name_);
}

bool file_storage::delete_value(const std::wstring& name) {
  return directory_->remove_file(name);
}

std::vector<std::wstring> file_storage::value_names() {
  return directory_->file_names();
}

std::vector<std::wstring> file_storage::subfolder_names() {
  return directory_->directory_names();
}

bool file_storage::has_value(const std::wstring& name) {
  return directory_->find_file(name) != nullptr;
}

bool file_storage::store(const std::wstring& name, stored_value value) {
  const std::shared_ptr<file> opened = directory_->open_file(name);
  if (!opened)
    return false;
  opened->store(std::move(value));
  return true;
}

}  // namespace Tamrin::setman
