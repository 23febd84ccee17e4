// Ctrl+C, Ctrl+Break and the closing of the console window as an event that can be waited for.
#pragma once

#include <atomic>
#include <chrono>

#include "console/control_events.h"
#include "platform/unique_resource.h"

namespace console {

// The first of these events only signals event(); the second one ends the process as it would
// without this. When the window is closed, the time until the destructor has run is left for putting
// things in order. At most one exists in a process.
class interrupt {
 public:
  interrupt();  // throws hresult_error

  // Signalled from the first event on.
  [[nodiscard]] HANDLE event() const noexcept { return requested_.get(); }

  // From now on Ctrl+C is a key like others: it only signals ctrl_c(), once for each time that it
  // is struck or more. For a console whose input is raw, which still may hand it over as an event.
  void make_ctrl_c_a_key(bool is_key) noexcept { ctrl_c_is_key_ = is_key; }
  [[nodiscard]] HANDLE ctrl_c() const noexcept { return ctrl_c_struck_.get(); }

  // Blocks for `time`, or until the first event; true when it has come.
  [[nodiscard]] bool wait(std::chrono::milliseconds time) const noexcept;

 private:
  [[nodiscard]] bool handle(DWORD event) noexcept;

  const Tamrin::unique_handle requested_;      // manual-reset
  const Tamrin::unique_handle ctrl_c_struck_;  // auto-reset
  std::atomic<bool> ctrl_c_is_key_ = false;

  const control_events events_;
  const control_handler handler_;  // last: it uses the others
};

}  // namespace console
