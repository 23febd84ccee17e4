// A folder of the in-memory settings tree.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/name_less.h"
#include "settings/file.h"

namespace Tamrin::setman {

// Holds files and directories; a name belongs to a file or to a directory, never to both. Owned by
// its parent and by the storages over it. Has its own lock: any thread may use it.
class directory {
 public:
  // The directory, created if missing. Throws folder_creation_error when a file has the name.
  [[nodiscard]] std::shared_ptr<directory> open_directory(const std::wstring& name);

  // The file, or null.
  [[nodiscard]] std::shared_ptr<file> find_file(const std::wstring& name) const;
  // The file, created if missing; null when a directory has the name.
  [[nodiscard]] std::shared_ptr<file> open_file(const std::wstring& name);

  // False when there is no such entry. Its other owners may go on using it, outside the tree.
  bool remove_directory(const std::wstring& name);
  bool remove_file(const std::wstring& name);

  [[nodiscard]] std::vector<std::wstring> directory_names() const;
  [[nodiscard]] std::vector<std::wstring> file_names() const;

 private:
  // Guarded by mutex_.
  mutable std::mutex mutex_;
  std::map<std::wstring, std::shared_ptr<directory>, name_less> directories_;
  std::map<std::wstring, std::shared_ptr<file>, name_less> files_;
};

}  // namespace Tamrin::setman
