// Walks a segment table and writes its text.
#pragma once

#include <span>
#include <string>

#include "format/argument.h"
#include "format/segment.h"

namespace tfmt::details {

// Throws bad_extended_format_string when a placeholder, suppressed or not, selects an argument that
// is not there, when a condition is not a bool, or when a section is closed or inverted that was
// never opened. A section left open ends with the pattern.
[[nodiscard]] std::wstring render(std::span<const segment> table,
                                  std::span<const argument> arguments);

}  // namespace tfmt::details
