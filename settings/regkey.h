// A settings folder backed by a registry key.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unique_resource.h"
#include "settings/abstract_folder.h"
#include "settings/stored_value.h"

namespace Tamrin::setman {

struct registry_key_traits {
  using pointer = HKEY;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer key) noexcept { ::RegCloseKey(key); }
};
using unique_registry_key = unique_resource<registry_key_traits>;

// The key is opened on first use, and created if missing, even for reading; the handle is then
// kept. Several threads may share one regkey.
class regkey final : public abstract_folder, public std::enable_shared_from_this<regkey> {
 public:
  // A root: one of the predefined keys, which is never closed.
  explicit regkey(HKEY predefined) noexcept;
  // The key at `path`, which is not empty, below `root`.
  regkey(std::shared_ptr<const regkey> root, std::wstring path) noexcept;

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
  [[nodiscard]] HKEY root_key() const noexcept;

  // The caller holds mutex_ while it uses the returned key.
  [[nodiscard]] HKEY key_for_reading();
  [[nodiscard]] HKEY key_for_writing();
  [[nodiscard]] unique_registry_key create_key(REGSAM access, const char* error_message) const;

  bool set(const std::wstring& name, DWORD type, const void* data, std::size_t size);
  std::optional<stored_value> query(const std::wstring& name);

  // Constant after construction.
  const HKEY predefined_ = nullptr;
  const std::shared_ptr<const regkey> root_;  // null in a root
  const std::wstring path_;

  // Guarded by mutex_, which is held across the registry calls because a write may replace the
  // handle that a read is using.
  std::mutex mutex_;
  unique_registry_key key_;
  bool writable_ = false;
};

// The process-wide roots, created during static initialisation and never destroyed: threads that
// outlive main may still use them and the folders opened below them.
extern const std::shared_ptr<regkey>& hkey_current_user;
extern const std::shared_ptr<regkey>& hkey_local_machine;

}  // namespace Tamrin::setman
