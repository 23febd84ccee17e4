// Takes a pattern apart into its segments.
#pragma once

#include <cstdint>
#include <string_view>

#include "format/cursor.h"
#include "format/segment.h"

namespace tfmt::details {

// The segments in their order, one at a time, so that a pattern that is used once needs no table.
// Their views point into the pattern.
class parser {
 public:
  explicit parser(std::wstring_view pattern) noexcept : at_(pattern) {}

  // Gives the next segment; false at the end. Throws bad_extended_format_string.
  [[nodiscard]] bool next(segment& result);

 private:
  cursor at_;
  std::uint16_t next_index_ = 0;
};

// All of them, in one allocation.
[[nodiscard]] segment_table parse(std::wstring_view pattern);

}  // namespace tfmt::details
