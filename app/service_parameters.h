// The service's parameters and event source, as an installation sets them up.
#pragma once

#include "app/command_line/command_line.h"
#include "app/options.h"
#include "platform/win32.h"

namespace tarnwheel {

// Both report a failure on standard error and return its code, or 0 on success.

// Checked here since an invalid descriptor would keep the service from starting, unnoticed.
[[nodiscard]] DWORD check_descriptor(const Tamrin::server_options& options);

// Registers this executable as the source of the service's events, and creates the key of its
// parameters, which the service's account may read but not create. Parameters given on the command
// line are written; the others stay unchanged. `options` are the values of `line`.
[[nodiscard]] DWORD install_parameters(const Tamrin::command_line& line,
                                       const Tamrin::server_options& options);

}  // namespace tarnwheel
