// The only platform service that formatting needs.
#pragma once

#include <string_view>

namespace tfmt::details {

// Maximum length of a separator, in code units.
inline constexpr int kMaxSeparator = 3;

// The separator of the user's default locale; empty when the locale has none. Read once per
// process, on first use. Any thread.
[[nodiscard]] std::wstring_view thousands_separator();

}  // namespace tfmt::details
