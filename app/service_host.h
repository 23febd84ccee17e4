// The server run by the service control manager.
#pragma once

#include <memory>

#include "platform/win32.h"
#include "server/server.h"
#include "settings/abstract_folder.h"

namespace tarnwheel {

using server_factory =
    std::unique_ptr<server> (*)(std::shared_ptr<Tamrin::setman::abstract_folder> parameters);

// Serves as the service until it has stopped, and returns 0; returns the Win32 error,
// ERROR_FAILED_SERVICE_CONTROLLER_CONNECT (1063) above all, when the service control manager did
// not start this process.
//
// `create` makes the server when the service starts. The service takes its parameters from the
// registry, and logs to the file that they name, if any. What keeps it from starting is told in the
// system's event log and ends in the state "stopped" with exit code 0: another server that runs, a
// key that cannot be opened (its account may read but not create it, the installation creates it),
// a pipe that cannot be made, and a value that is there but cannot be read as what it should be (a
// wrong type or length, a list of ports that is shorter or longer than its count). For a value that
// is missing its default holds. So a mistake in the registry never shares a port, or lets somebody
// in, whom the administrator did not write down.
[[nodiscard]] DWORD run_service(server_factory create = &create_server);

}  // namespace tarnwheel
