// What an installation leaves for the service.
#pragma once

#include "app/command_line/command_line.h"
#include "app/options.h"
#include "platform/win32.h"

namespace tarnwheel {

// Both say on standard error what is wrong, and give its code, 0 when all is well.

// A descriptor that is none would keep the service from starting when nobody looks.
[[nodiscard]] DWORD check_descriptor(const Tamrin::server_options& options);

// Makes this executable the source of the service's events, and creates the key of its parameters,
// which the service's account may read but not create. The parameters that the command line gives are
// written; the others stay as they are. `options` are the values of `line`.
[[nodiscard]] DWORD install_parameters(const Tamrin::command_line& line,
                                       const Tamrin::server_options& options);

}  // namespace tarnwheel
