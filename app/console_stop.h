// Stopping the console server from the keyboard or by closing its window.
#pragma once

#include "platform/unique_resource.h"
#include "server/server.h"

namespace tarnwheel {

// While it lives, Ctrl+C, Ctrl+Break and the closing of the console stop `server`. The destructor
// returns when no console event uses the server any more; later events are taken and do nothing, so
// a second Ctrl+C cannot cut off what is still being written. At most one exists in a process.
class console_stop {
 public:
  explicit console_stop(server& server);  // throws hresult_error
  console_stop(const console_stop&) = delete;
  console_stop& operator=(const console_stop&) = delete;
  ~console_stop();
};

// To be destroyed last, when the log is complete. Windows ends the process as soon as the handler
// of the closing of a console returns, at the latest after five seconds: the handler waits up to
// four seconds for this.
class console_close_release {
 public:
  console_close_release();
  console_close_release(const console_close_release&) = delete;
  console_close_release& operator=(const console_close_release&) = delete;
  ~console_close_release();
};

}  // namespace tarnwheel
