// The file that records the bytes of a line.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "client/line/client_error.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {

// Bytes are added as they are at the end of the file. Not synchronised.
class capture_file {
 public:
  // An empty path keeps nothing. Throws client_error when the file cannot be opened.
  explicit capture_file(std::wstring_view path);

  // Gives the first failure; after that nothing more is kept.
  [[nodiscard]] std::optional<client_error> add(std::span<const std::byte> bytes);

 private:
  [[nodiscard]] client_error failed(DWORD error) const;

  const std::wstring path_;
  Tamrin::unique_file file_;
};

}  // namespace tarnwheel::client
