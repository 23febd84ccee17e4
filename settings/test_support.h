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

// Runs with a folder in memory and with one in the registry, which is deleted with all that is in
// it.
class AnyFolder : public testing::TestWithParam<bool> {
 protected:
  ~AnyFolder() override { folder_->delete_folder(); }

  void WriteStream(const std::wstring& name, const bytes& data) {
    const unique_stream stream = folder_->open_stream(name, STGM_WRITE);
    stream.get()->Write(data.data(), static_cast<ULONG>(data.size()), nullptr);
  }

  // Below HKEY_CURRENT_USER, this process's own.
  const std::wstring path_ = L"Software\\settings_test " + std::to_wstring(::GetCurrentProcessId());
  const std::shared_ptr<abstract_folder> root_ =
      GetParam() ? std::shared_ptr<abstract_folder>(hkey_current_user)
                 : std::make_shared<file_storage>(std::make_shared<directory>());
  const std::shared_ptr<abstract_folder> folder_ = root_->open_subfolder(path_);
};

}  // namespace Tamrin::setman
