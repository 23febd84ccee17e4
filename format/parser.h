// Splits a pattern into segments.
#pragma once

#include <cstdint>
#include <string_view>

#include "format/cursor.h"
#include "format/segment.h"

namespace tfmt::details {

// Yields the segments in order, one at a time: each call of format parses its pattern afresh and
// builds no table. The views in the segments point into the pattern.
class parser {
 public:
  explicit parser(std::wstring_view pattern) noexcept : at_(pattern) {}

  // Stores the next segment in `result`; false at the end. Throws bad_extended_format_string.
  [[nodiscard]] bool next(segment& result);

 private:
  cursor at_;
  std::uint16_t next_index_ = 0;
};

}  // namespace tfmt::details
