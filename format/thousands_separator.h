// The one thing that formatting asks of the platform.
#pragma once

#include <string_view>

namespace tfmt::details {

// Longest separator, in code units.
inline constexpr int kMaxSeparator = 3;

// Separator of the user's default locale; empty when the locale has none. Read once in the process,
// on first use. May be called from any thread.
[[nodiscard]] std::wstring_view thousands_separator();

}  // namespace tfmt::details
