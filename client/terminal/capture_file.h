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

// Appends bytes unchanged to the file. Not synchronised.
class capture_file {
 public:
  // With an empty path nothing is recorded. Throws client_error if the file cannot be opened.
  explicit capture_file(std::wstring_view path);

  // Returns the first failure, after which nothing more is recorded.
  [[nodiscard]] std::optional<client_error> add(std::span<const std::byte> bytes);

 private:
  [[nodiscard]] client_error failed(DWORD error) const;

  const std::wstring path_;
  Tamrin::unique_file file_;
};

}  // namespace tarnwheel::client
