// The server run as a service.
#pragma once

#include <memory>

#include "platform/win32.h"
#include "server/server.h"
#include "settings/abstract_folder.h"

namespace tarnwheel {

using server_factory =
    std::unique_ptr<server> (*)(std::shared_ptr<Tamrin::setman::abstract_folder> parameters);

// Runs the service until it has stopped and returns 0. Returns the Win32 error when that is not
// possible, for instance ERROR_FAILED_SERVICE_CONTROLLER_CONNECT (1063) when the service control
// manager did not start this process.
//
// `create` makes the server when the service starts. The service takes its parameters from the
// registry, and logs to the file that they name, if any. A failed start is reported in the system's
// event log and ends in the state "stopped" with exit code 0. Its causes: another server is
// running; the key cannot be opened (the service's account may read it but not create it, which the
// installation does); the pipe cannot be created; a value has the wrong type or length, for
// instance a list of ports that is shorter or longer than its count. A missing value takes its
// default. So a mistake in the registry never shares a port, or admits an account, that the
// administrator did not list.
[[nodiscard]] DWORD run_service(server_factory create = &create_server);

}  // namespace tarnwheel
