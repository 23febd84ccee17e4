// Ctrl+C, Ctrl+Break and the closing of the console window.
#pragma once

#include <functional>

#include "platform/win32.h"

namespace console {

// Receives these events from the system. Until the first control_handler exists they end the
// process as usual; once the last one has been destroyed they are ignored, so that output still
// being written is not cut off. At most one exists in a process.
//
// When the window is closed, Windows ends the process as soon as the event has been handled, after
// five seconds at the latest. The handler therefore waits up to four seconds for this destructor.
class control_events {
 public:
  control_events();  // throws hresult_error
  control_events(const control_events&) = delete;
  control_events& operator=(const control_events&) = delete;
  ~control_events();
};

// Handles the events while it lives. At most one exists at a time, while a control_events exists.
class control_handler {
 public:
  // Called for each event (CTRL_C_EVENT, CTRL_BREAK_EVENT or CTRL_CLOSE_EVENT) on a system thread;
  // calls may be concurrent. Must not throw. Returning false lets the event end the process.
  using action = std::function<bool(DWORD event)>;

  explicit control_handler(action on_event);
  control_handler(const control_handler&) = delete;
  control_handler& operator=(const control_handler&) = delete;
  ~control_handler();  // returns once no call is in progress

  [[nodiscard]] bool handle(DWORD event) const { return action_(event); }

 private:
  const action action_;
};

}  // namespace console
