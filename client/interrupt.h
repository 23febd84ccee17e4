// Ctrl+C, Ctrl+Break and the closing of the console window, as a wish that can be waited for.
#pragma once

#include <chrono>

#include "platform/win32.h"

namespace tarnwheel::client {

// While it lives, the first of these events only signals event(); the second ends the process as it
// would without this. When the window closes, Windows ends the process a few seconds later: the
// time until the destructor has run is kept for putting things in order. At most one exists in a
// process.
class interrupt {
 public:
  interrupt();  // throws hresult_error
  interrupt(const interrupt&) = delete;
  interrupt& operator=(const interrupt&) = delete;
  ~interrupt();

  // Signalled from the first event on.
  [[nodiscard]] HANDLE event() const noexcept;

  // From now on Ctrl+C is a key like others: it only signals ctrl_c(), once for each time that it
  // is struck or more. For a console whose input is raw, which still may hand it over as an event.
  void make_ctrl_c_a_key(bool is_key) noexcept;
  [[nodiscard]] HANDLE ctrl_c() const noexcept;

  // Blocks for `time`, or until the first event; true when it has come.
  [[nodiscard]] bool wait(std::chrono::milliseconds time) const noexcept;
};

}  // namespace tarnwheel::client
