// The exceptions of the formatting library. Neither type carries a message.
#pragma once

namespace tfmt {

// Root of the library's exceptions; deliberately not derived from std::exception.
struct generic_exception {};

// The pattern is malformed, or does not fit the arguments it is rendered with.
struct bad_extended_format_string : generic_exception {};

}  // namespace tfmt
