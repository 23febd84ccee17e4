// Bytes in hexadecimal columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tarnwheel::client {

// Formats rows of sixteen bytes with their offset and their ASCII characters, 78 columns wide. An
// incomplete row is shown at once, and overwritten when the next bytes arrive: so the text begins
// with a carriage return.
class hex_view {
 public:
  static constexpr std::size_t kBytesInRow = 16;

  // The text to show for these bytes, which follow those of the last call.
  [[nodiscard]] std::wstring add(std::span<const std::byte> bytes);

 private:
  [[nodiscard]] std::wstring row() const;

  std::uint32_t offset_ = 0;  // of the row; wraps after 4 GiB
  std::vector<std::byte> row_;
};

}  // namespace tarnwheel::client
