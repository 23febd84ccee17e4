// A settings folder over an in-memory tree.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "settings/abstract_folder.h"
#include "settings/directory.h"

namespace Tamrin::setman {

// Holds only its place in the tree, so several threads may share it; directories and files have
// their own locks. A value and a subfolder cannot have the same name here.
class file_storage final : public abstract_folder {
 public:
  // The root of a tree.
  explicit file_storage(std::shared_ptr<directory> root) noexcept;

  // Creates the child at once. Throws folder_creation_error when a value has its name.
  [[nodiscard]] std::shared_ptr<abstract_folder> open_subfolder(const std::wstring& name) override;
  bool write_string(const std::wstring& name, std::wstring_view text) override;
  bool write_value(const std::wstring& name, const void* data, std::size_t size) override;
  [[nodiscard]] std::optional<std::wstring> read_string(const std::wstring& name) override;
  [[nodiscard]] bool read_value(const std::wstring& name, void* data, std::size_t size) override;
  [[nodiscard]] unique_stream open_stream(const std::wstring& name, DWORD mode) override;
  bool delete_folder() override;
  bool delete_value(const std::wstring& name) override;
  [[nodiscard]] std::vector<std::wstring> value_names() override;
  [[nodiscard]] std::vector<std::wstring> subfolder_names() override;
  [[nodiscard]] bool has_value(const std::wstring& name) override;

 private:
  file_storage(std::shared_ptr<directory> parent, std::wstring name);

  bool store(const std::wstring& name, stored_value value);

  // Constant after construction. A root has no parent.
  const std::shared_ptr<directory> parent_;
  const std::wstring name_;
  const std::shared_ptr<directory> directory_;
};

}  // namespace Tamrin::setman
