// The checks of a real serial line, whose port has a plug that joins TX with RX, RTS with CTS, and DTR
// with DSR and DCD. They throw check_failure or client_error.
#pragma once

#include <span>

#include "tools/line_check/remote_port.h"

namespace tarnwheel::tools {

// `line` is open at `place`.
struct line_check {
  const wchar_t* name;
  void (*run)(remote_port& line, const place& place);
};

// In their order: a check may begin with what the one before it has set.
[[nodiscard]] std::span<const line_check> line_checks();

// A device that is gone answers nothing that was under way, and is back for a new connection. Asks
// for the hand that unplugs it, and waits for that for a minute.
void survives_unplugging(remote_port& line, const place& place);

}  // namespace tarnwheel::tools
