// Parses one placeholder: the text between "{" and "}".
#pragma once

#include <cstdint>

#include "format/cursor.h"
#include "format/segment.h"

namespace tfmt::details {

// `at` must be just after the "{" and is left just after the "}". Without an index of its own the
// placeholder selects `automatic_index`. Throws bad_extended_format_string.
[[nodiscard]] segment take_placeholder(cursor& at, std::uint16_t automatic_index);

}  // namespace tfmt::details
