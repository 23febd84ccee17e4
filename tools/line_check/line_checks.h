// The checks of a real serial line, whose port has a plug that joins TX to RX, RTS to CTS, and DTR
// to DSR and DCD. They throw check_failure or client_error.
#pragma once

#include <span>

#include "tools/line_check/remote_port.h"

namespace tarnwheel::tools {

// `line` is open at `place`.
struct line_check {
  const wchar_t* name;
  void (*run)(remote_port& line, const place& place);
};

// In the order in which they run: a check may rely on settings of the one before it.
[[nodiscard]] std::span<const line_check> line_checks();

// Checks that a device that is unplugged answers no call in progress, and can be opened again on a
// new connection. Asks the user to unplug it and to plug it in again, and waits a minute for each.
void survives_unplugging(remote_port& line, const place& place);

}  // namespace tarnwheel::tools
