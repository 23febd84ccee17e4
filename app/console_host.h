// The server run in a console.
#pragma once

#include "app/command_line/command_line.h"

namespace tarnwheel {

// Runs the server with the parsed command line until it is stopped; returns the process's exit
// code. Throws Tamrin::cmd_line_syntax_error for an invalid option value.
[[nodiscard]] int run_console_server(const Tamrin::command_line& line);

}  // namespace tarnwheel
