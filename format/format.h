// Builds wide text from a pattern and typed arguments: format(L"COM{0} is {1}", port, name).
//
// A placeholder is "{", an optional argument index (default: the previous placeholder's index plus
// one, or 0 for the first), any number of specifiers, and "}". "{{" stands for a single "{"; "}"
// outside a placeholder is ordinary text. Specifiers (the last one wins when one is repeated):
//   wN  wN,M  w,M    minimum width N and maximum width M in code units, 0 = none
//   al  ac  ar       aligns the text left (default), centred or right within its width
//   fC               pads to the width with the character C (default: a space)
//   e                marks truncated text with an ellipsis, which counts as one code unit
//   bN  b0N          integers in base 2, 8, 10 (default) or 16; the 0 prefixes base 16 with "0x"
//   b16x  b16X       hexadecimal in lower or upper case (default); a following "p" pads with
//                    zeros to 8 digits
//   u                treats signed integers as unsigned, bit for bit
//   +                puts "+" before signed integers that are not negative
//   c                shows the low 16 bits of an integer as a code unit
//   l                groups decimal digits in threes with the user's thousands separator
//   ?<  ?|  ?>       opens a section that is shown while the bool argument is true, inverts it,
//                    closes it; sections nest
//   n  s  sa  pN  t(TEXT)  accepted without effect
// Zero never gets the prefix. A bool used without "?" is empty text. Numbers in a pattern wrap at
// 16 bits (the base at 8).
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "format/argument.h"
#include "format/exceptions.h"

namespace tfmt {

namespace details {
[[nodiscard]] std::wstring format(std::wstring_view pattern, std::span<const argument> arguments);
}  // namespace details

// Arguments are signed and unsigned 32-bit integers, bool, and wide text (std::wstring, views and
// literals); nothing else compiles. Throws bad_extended_format_string when the pattern is
// malformed, ends inside a placeholder, selects a missing argument, opens a section with an
// argument that is not a bool, or closes or inverts a section that is not open.
template <details::formattable... Args>
[[nodiscard]] std::wstring format(std::wstring_view pattern, const Args&... args) {
  const std::array<details::argument, sizeof...(Args)> arguments{details::to_argument(args)...};
  return details::format(pattern, arguments);
}

}  // namespace tfmt
