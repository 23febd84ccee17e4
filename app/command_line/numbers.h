// Numbers on a command line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tamrin {

// A decimal number from `least` to `greatest`. Throws cmd_line_syntax_error, which names the value
// by `what`, for anything else; its expected() is `expected`, or the range.
[[nodiscard]] std::uint32_t parse_number(std::wstring_view text, const std::string& what,
                                         std::uint32_t least, std::uint32_t greatest,
                                         std::wstring_view expected = {});

// The number of a port, written as COM5, com5 or 5. Throws cmd_line_syntax_error.
[[nodiscard]] std::uint32_t parse_port(std::wstring_view text);

}  // namespace Tamrin
