// Fits text to a placeholder's width.
#pragma once

#include <string>
#include <string_view>

#include "format/segment.h"

namespace tfmt::details {

// Appends `text`, padded to the placeholder's minimum width if it is shorter, and only otherwise
// truncated to the maximum width.
void append_fitted(std::wstring& output, std::wstring_view text, const segment& placeholder);

}  // namespace tfmt::details
