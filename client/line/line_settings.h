// The settings of a serial line and their command-line options.
#pragma once

#include "app/command_line/command_line.h"
#include "platform/serial.h"

namespace tarnwheel::client {

// The means by which a full receiver stops the sender.
enum class flow_control { none, rts_cts, xon_xoff };

// In the serial driver's terms, except for the flow control.
struct line_settings {
  SERIAL_BAUD_RATE baud_rate;
  SERIAL_LINE_CONTROL control;
  flow_control flow = flow_control::none;
};

// "7 data bits, even parity and 1 stop bits"; "rtscts". For values that the options can have.
[[nodiscard]] std::wstring words_of(const SERIAL_LINE_CONTROL& control);
[[nodiscard]] std::wstring_view words_of(flow_control flow);

// "7E1".
[[nodiscard]] std::wstring short_form_of(const SERIAL_LINE_CONTROL& control);

void add_line_options(Tamrin::command_line& line);

// The defaults are 115200 baud, 8 data bits, no parity, 1 stop bit and no flow control. Throws
// cmd_line_syntax_error for a value that no line can have.
[[nodiscard]] line_settings line_settings_of(const Tamrin::command_line& line);

}  // namespace tarnwheel::client
