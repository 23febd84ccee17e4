// Shared by the tests of the settings folders.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "settings/file_storage.h"
#include "settings/regkey.h"

namespace Tamrin::setman::test {

// Below HKEY_CURRENT_USER, this process's own.
inline std::wstring registry_path() {
  return L"Software\\settings_test " + std::to_wstring(::GetCurrentProcessId());
}

// A registry folder that is deleted with all that is in it.
class registry_folder {
 public:
  registry_folder() : folder_(hkey_current_user->open_subfolder(registry_path())) {}
  registry_folder(const registry_folder&) = delete;
  registry_folder& operator=(const registry_folder&) = delete;
  ~registry_folder() { folder_->delete_folder(); }
  abstract_folder* operator->() const { return folder_.get(); }
  abstract_folder& operator*() const { return *folder_; }

 private:
  std::shared_ptr<abstract_folder> folder_;
};

inline std::shared_ptr<file_storage> memory_folder() {
  return std::make_shared<file_storage>(std::make_shared<directory>());
}

using bytes = std::vector<unsigned char>;

// The whole stream of a value; what cannot be read is empty.
inline bytes read_stream(abstract_folder& folder, const std::wstring& name) {
  const unique_stream stream = folder.open_stream(name, STGM_READ);
  bytes data(256);
  ULONG read = 0;
  if (stream)
    stream.get()->Read(data.data(), static_cast<ULONG>(data.size()), &read);
  data.resize(read);
  return data;
}

inline void write_stream(abstract_folder& folder, const std::wstring& name, const bytes& data) {
  const unique_stream stream = folder.open_stream(name, STGM_WRITE);
  stream.get()->Write(data.data(), static_cast<ULONG>(data.size()), nullptr);
}

}  // namespace Tamrin::setman::test
