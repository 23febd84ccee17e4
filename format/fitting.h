// Fits a placeholder's text into its width.
#pragma once

#include <string>
#include <string_view>

#include "format/segment.h"

namespace tfmt::details {

// Appends `text`, padded to the placeholder's width or else cut to its maximum width.
void append_fitted(std::wstring& output, std::wstring_view text, const segment& placeholder);

}  // namespace tfmt::details
