// Shared by the tests of the settings folders.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "settings/file_storage.h"
#include "settings/regkey.h"

namespace Tamrin::setman {

using bytes = std::vector<unsigned char>;

// Runs each test with a folder in memory and with one in the registry; the destructor deletes the
// folder and its contents.
class AnyFolder : public testing::TestWithParam<bool> {
 protected:
  ~AnyFolder() override { folder_->delete_folder(); }

  void WriteStream(const std::wstring& name, const bytes& data) {
    const unique_stream stream = folder_->open_stream(name, STGM_WRITE);
    stream.get()->Write(data.data(), static_cast<ULONG>(data.size()), nullptr);
  }

  // Unique to this process; in the registry, below HKEY_CURRENT_USER.
  const std::wstring path_ = L"Software\\settings_test " + std::to_wstring(::GetCurrentProcessId());
  const std::shared_ptr<abstract_folder> root_ =
      GetParam() ? std::shared_ptr<abstract_folder>(hkey_current_user)
                 : std::make_shared<file_storage>(std::make_shared<directory>());
  const std::shared_ptr<abstract_folder> folder_ = root_->open_subfolder(path_);
};

}  // namespace Tamrin::setman
