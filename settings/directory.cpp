#include "settings/directory.h"

#include "settings/folder_creation_error.h"

namespace Tamrin::setman {
namespace {

template <class Entry>
std::shared_ptr<Entry> entry_of(std::map<std::wstring, std::shared_ptr<Entry>, name_less>& entries,
                                const std::wstring& name) {
  const auto found = entries.find(name);
  if (found != entries.end())
    return found->second;
  return entries.emplace(name, std::make_shared<Entry>()).first->second;
}

template <class Entries>
std::vector<std::wstring> names_of(const Entries& entries) {
  std::vector<std::wstring> names;
  for (const auto& [name, entry] : entries)
    names.push_back(name);
  return names;
}

}  // namespace

std::shared_ptr<directory> directory::open_directory(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  if (files_.contains(name))
    throw folder_creation_error("File with the same name exists", ERROR_FILE_EXISTS);
  return entry_of(directories_, name);
}

std::shared_ptr<file> directory::find_file(const std::wstring& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = files_.find(name);
  return found == files_.end() ? nullptr : found->second;
}

std::shared_ptr<file> directory::open_file(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  if (directories_.contains(name))
    return nullptr;
  return entry_of(files_, name);
}

bool directory::remove_directory(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  return directories_.erase(name) != 0;
}

bool directory::remove_file(const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  return files_.erase(name) != 0;
}

std::vector<std::wstring> directory::directory_names() const {
  const std::lock_guard lock(mutex_);
  return names_of(directories_);
}

std::vector<std::wstring> directory::file_names() const {
  const std::lock_guard lock(mutex_);
  return names_of(files_);
}

}  // namespace Tamrin::setman
