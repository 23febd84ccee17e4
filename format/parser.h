// Turns a pattern into its segment table.
#pragma once

#include <string_view>

#include "format/segment.h"

namespace tfmt::details {

// One allocation. The table's views point into `pattern`. Throws bad_extended_format_string.
[[nodiscard]] segment_table parse(std::wstring_view pattern);

}  // namespace tfmt::details
