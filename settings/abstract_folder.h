// A folder of named values and subfolders, independent of its storage.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "settings/unique_stream.h"

namespace Tamrin::setman {

// Folders have shared ownership. Several threads may use one at once; operations need no external
// locking. Names are compared without regard to case. An operation throws folder_creation_error
// when the folder itself cannot be opened; every other failure is reported by the result. A folder
// object must not be used once its folder has been deleted.
class abstract_folder {
 public:
  abstract_folder() = default;
  abstract_folder(const abstract_folder&) = delete;
  abstract_folder& operator=(const abstract_folder&) = delete;
  virtual ~abstract_folder() = default;

  // `name` may be a path with backslashes. The child need not exist: it is created no later than
  // its first read or write.
  [[nodiscard]] virtual std::shared_ptr<abstract_folder> open_subfolder(
      const std::wstring& name) = 0;

  // The text is stored without a terminating zero.
  virtual bool write_string(const std::wstring& name, std::wstring_view text) = 0;

  // Up to 4 bytes are stored as a 32-bit number and up to 8 as a 64-bit number, both zero-extended
  // from the little-endian bytes given; more than 8 are stored as plain bytes.
  virtual bool write_value(const std::wstring& name, const void* data, std::size_t size) = 0;

  // Empty when there is no such value or it is not a string. Trailing zeros are removed.
  [[nodiscard]] virtual std::optional<std::wstring> read_string(const std::wstring& name) = 0;

  // A number is truncated or zero-extended to `size` bytes; plain bytes are read only when there
  // are exactly `size` of them. On failure `data` is unchanged.
  [[nodiscard]] virtual bool read_value(const std::wstring& name, void* data, std::size_t size) = 0;

  // `mode` is STGM_READ, STGM_WRITE (starts empty) or STGM_READWRITE. The data written become the
  // value, as plain bytes, when the last reference to the stream is released. A stream is used by
  // one thread at a time. Null when it cannot be opened; null or empty when there is no value to
  // read.
  [[nodiscard]] virtual unique_stream open_stream(const std::wstring& name, DWORD mode) = 0;

  // Deletes the folder with all its contents; a root cannot be deleted.
  virtual bool delete_folder() = 0;
  virtual bool delete_value(const std::wstring& name) = 0;

  // In no particular order.
  [[nodiscard]] virtual std::vector<std::wstring> value_names() = 0;
  [[nodiscard]] virtual std::vector<std::wstring> subfolder_names() = 0;

  // False only when the value certainly does not exist: distinguishes a missing value from one that
  // a read rejects. A value that cannot be queried counts as present.
  [[nodiscard]] virtual bool has_value(const std::wstring& name) = 0;
};

}  // namespace Tamrin::setman
