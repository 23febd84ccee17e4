// The serial port server as its hosts create, run and stop it.
#pragma once

#include <memory>

#include "async/future.h"
#include "settings/abstract_folder.h"

namespace tarnwheel {

// At most one exists on a machine: it owns the global stop event. The object must outlive its run.
class server {
 public:
  virtual ~server() = default;

  // Reads the parameters from the folder and starts to listen. The future completes when the server
  // has been stopped and every session has logged its departure and closed its port, or none has
  // done so for three seconds: a port that is still held is then named in the log, and stays open
  // until the process ends. Throws hresult_error when the server cannot start (a bad security
  // descriptor, an endpoint that cannot be created), and folder_creation_error when the folder
  // cannot be opened. Called once.
  virtual ostra::future<void> run() = 0;

  // Asks the running server to stop and returns at once. Any thread; idempotent.
  virtual void stop() = 0;
};

// Throws hresult_error: 0x800700B7 when another server runs on this machine.
[[nodiscard]] std::unique_ptr<server> create_server(
    std::shared_ptr<Tamrin::setman::abstract_folder> parameters);

}  // namespace tarnwheel
