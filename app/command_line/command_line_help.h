// The help text for the options of a command line.
#pragma once

#include <cstddef>
#include <string>

#include "app/command_line/command_line.h"

namespace Tamrin {

// One block per option, in the order of registration, without a title: its names, then its
// description in a separate column, wrapped so that lines fit `console_width` code units. Ends with
// a line feed unless there are no options. Throws cmd_line_syntax_error when a reference names an
// option that does not exist.
[[nodiscard]] std::wstring format_help(const command_line& line, std::size_t console_width);

}  // namespace Tamrin
