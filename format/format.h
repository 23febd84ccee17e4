// Builds wide text from a pattern and typed arguments: format(L"COM{0} is {1}", port, name).
//
// A placeholder is "{", an optional argument index (without one: the previous placeholder's index
// plus one, 0 for the first), any number of specifiers, and "}". "{{" stands for a single "{"; "}"
// outside a placeholder is ordinary text. Specifiers; of those that repeat the last one wins:
//   wN  wN,M  w,M    least width N and greatest width M in code units, 0 = none
//   al  ac  ar       text at the left (default), in the centre or at the right of its width
//   fC               the character C fills the width (default: a space)
//   e                a cut is marked with an ellipsis, which counts as one code unit
//   bN  b0N          integers in base 2, 8, 10 (default) or 16; the 0 asks for the prefix "0x"
//   b16x  b16X       hexadecimal in lower or upper case (default); a "p" behind fills with zeros
//                    up to 8 digits
//   u                signed integers by their bits, as unsigned ones
//   +                "+" before signed integers that are not negative
//   c                integers as the code unit of their low 16 bits
//   l                decimal digits in groups of three, with the user's thousands separator
//   ?<  ?|  ?>       opens a section that shows while the bool argument is true, inverts it,
//                    closes it; sections nest
//   n  s  sa  pN  t(TEXT)  accepted without effect
// A zero never gets the prefix. A bool outside ?< is empty text. Numbers in a pattern wrap at 16
// bits (the base at 8).
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
// malformed, ends inside a placeholder, selects an argument that is not there, opens a section with
// an argument that is not a bool, or closes or inverts a section that is not open.
template <details::formattable... Args>
[[nodiscard]] std::wstring format(std::wstring_view pattern, const Args&... args) {
  const std::array<details::argument, sizeof...(Args)> arguments{details::to_argument(args)...};
  return details::format(pattern, arguments);
}

}  // namespace tfmt
