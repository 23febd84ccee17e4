// The help text that a command line's options describe.
#pragma once

#include <cstddef>
#include <string>

#include "app/command_line/command_line.h"

namespace Tamrin {

// One block an option, in the order of registration, without a heading: its names, then its
// description in a column of its own, wrapped to `console_width` code units a line. Ends with a
// line feed unless there are no options. Throws cmd_line_syntax_error when a reference names an
// option that does not exist.
[[nodiscard]] std::wstring format_help(const command_line& line, std::size_t console_width);

}  // namespace Tamrin
