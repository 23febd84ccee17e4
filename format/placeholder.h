// Reads one placeholder: what stands between a "{" and its "}".
#pragma once

#include <cstdint>

#include "format/cursor.h"
#include "format/segment.h"

namespace tfmt::details {

// `at` stands behind the "{" and is left behind the "}". Without digits the placeholder selects
// `automatic_index`. Throws bad_extended_format_string.
[[nodiscard]] segment take_placeholder(cursor& at, std::uint16_t automatic_index);

}  // namespace tfmt::details
