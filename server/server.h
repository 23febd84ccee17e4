// The serial port server: what a host creates, runs and stops.
#pragma once

#include <memory>

#include "async/future.h"
#include "settings/abstract_folder.h"

namespace tarnwheel {

// At most one exists on a machine: it owns the global stop event. The object must outlive its run.
class server {
 public:
  virtual ~server() = default;

  // Starts to listen; the future completes when the server has been stopped, every session has
  // logged its departure and closed its port, or none has done so for three seconds: what then still
  // holds a port is named in the log, and stays behind until the process ends. Reads its parameters from
  // the folder. What prevents the start (a bad security descriptor, an endpoint that cannot be
  // made) is thrown as hresult_error, and folder_creation_error when the folder cannot be read.
  // Called once.
  virtual ostra::future<void> run() = 0;

  // Asks the running server to stop, and returns at once. Any thread, any number of times.
  virtual void stop() = 0;
};

// Throws hresult_error: 0x800700B7 when another server runs on this machine.
[[nodiscard]] std::unique_ptr<server> create_server(
    std::shared_ptr<Tamrin::setman::abstract_folder> parameters);

}  // namespace tarnwheel
