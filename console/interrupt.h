// Ctrl+C, Ctrl+Break and the closing of the console window as a waitable event.
#pragma once

#include <atomic>
#include <chrono>

#include "console/control_events.h"
#include "platform/unique_resource.h"

namespace console {

// The first of these events only signals event(); the second ends the process as usual. When the
// window is closed, the process can clean up until this destructor has run, for up to four seconds.
// At most one exists in a process.
class interrupt {
 public:
  interrupt();  // throws hresult_error

  // Signalled from the first event on.
  [[nodiscard]] HANDLE event() const noexcept { return requested_.get(); }

  // With true, Ctrl+C is an ordinary key that only signals ctrl_c(); several presses may count as
  // one. For a console in raw mode, which may still deliver the key as an event.
  void set_ctrl_c_as_key(bool is_key) noexcept { ctrl_c_is_key_ = is_key; }
  [[nodiscard]] HANDLE ctrl_c() const noexcept { return ctrl_c_pressed_.get(); }

  // Blocks until the first event, for at most `time`; true when the event has come.
  [[nodiscard]] bool wait(std::chrono::milliseconds time) const noexcept;

 private:
  [[nodiscard]] bool handle(DWORD event) noexcept;

  const Tamrin::unique_handle requested_;       // manual-reset
  const Tamrin::unique_handle ctrl_c_pressed_;  // auto-reset
  std::atomic<bool> ctrl_c_is_key_ = false;

  const control_events events_;
  const control_handler handler_;  // last: it uses the members above
};

}  // namespace console
