#include "client/terminal/terminal_commands.h"

#include <chrono>
#include <span>

#include "format/format.h"
#include "platform/serial.h"

namespace tarnwheel::client {
namespace {

struct named_bit {
  std::uint32_t bit;
  std::wstring_view name;
};

constexpr named_bit kModemLines[] = {
    {MS_CTS_ON, L"CTS"}, {MS_DSR_ON, L"DSR"}, {MS_RING_ON, L"RI"}, {MS_RLSD_ON, L"DCD"}};

constexpr named_bit kErrors[] = {{SERIAL_ERROR_BREAK, L"break"},
                                 {SERIAL_ERROR_FRAMING, L"framing"},
                                 {SERIAL_ERROR_OVERRUN, L"overrun"},
                                 {SERIAL_ERROR_QUEUEOVERRUN, L"queue overrun"},
                                 {SERIAL_ERROR_PARITY, L"parity"}};

std::wstring on_or_off(std::wstring_view name, bool on) {
  return tfmt::format(L"{0} {1}", name, on ? std::wstring_view(L"on") : std::wstring_view(L"off"));
}

}  // namespace

std::wstring terminal_commands::output_line::state() const {
  return on_or_off(name, on);
}

void terminal_commands::run(key_command command) {
  std::erase_if(under_way_, [](const auto& done) { return done.is_complete(); });
  const bool breaks = break_.valid() && !break_.is_complete();
  if (command == key_command::send_break && !breaks)
    break_ = send_break();
  else if (command == key_command::toggle_dtr)
    under_way_.push_back(toggle(dtr_));
  else if (command == key_command::toggle_rts)
    under_way_.push_back(toggle(rts_));
  else if (command == key_command::show_state)
    under_way_.push_back(show_state());
}

void terminal_commands::finish() {
  break_time_.cancel();
  if (break_.valid())
    break_.wait();
  for (const auto& command : under_way_)
    command.wait();
}

ostra::future<void> terminal_commands::send_break() {
  try {
    auto sent = line_.controls().send_break(break_time_);
    co_await sent;
    screen_.note(L"break sent");
  } catch (const client_error& error) {
    screen_.note(error.message());
  } catch (const ostra::timer_cancelled&) {
    // The user leaves the terminal, which closes the port.
  }
}

ostra::future<void> terminal_commands::toggle(output_line& toggled) {
  const bool on = !toggled.on;
  toggled.on = on;
  try {
    auto set = (line_.controls().*toggled.set)(on);
    co_await set;
    screen_.note(on_or_off(toggled.name, on));
  } catch (const client_error& error) {
    toggled.on = !on;
    screen_.note(tfmt::format(L"{0} is unchanged; {1}", toggled.name, error.message()));
  }
}

ostra::future<void> terminal_commands::show_state() {
  const std::wstring own = dtr_.state() + L", " + rts_.state();
  auto rate_asked = rate();
  const std::wstring line = co_await rate_asked;
  auto lines_asked = modem_lines();
  const std::wstring lines = co_await lines_asked;
  auto errors_asked = errors();
  const std::wstring found = co_await errors_asked;
  screen_.note(tfmt::format(L"{0}: {1}; {2}\r\n {3}; {4}", line_.name(), line, own, lines, found));
}

// The rate in effect, which may be the nearest one that the device supports.
ostra::future<std::wstring> terminal_commands::rate() {
  try {
    auto asked = line_.controls().baud_rate();
    const std::uint32_t baud = co_await asked;
    co_return tfmt::format(L"{0} baud {1}", baud, format_);
  } catch (const client_error&) {
    // The device does not report it.
  }
  co_return format_;
}

ostra::future<std::wstring> terminal_commands::modem_lines() {
  std::wstring text;
  try {
    auto asked = line_.controls().modem_status();
    const std::uint32_t status = co_await asked;
    for (const auto& [bit, name] : kModemLines)
      text += (text.empty() ? L"" : L", ") + on_or_off(name, (status & bit) != 0);
  } catch (const client_error&) {
    text = L"the device does not report CTS, DSR, RI and DCD";
  }
  co_return text;
}

ostra::future<std::wstring> terminal_commands::errors() {
  auto asked = line_.take_errors();
  const std::uint32_t errors = co_await asked;
  std::wstring text;
  for (const auto& [bit, name] : kErrors) {
    if ((errors & bit) != 0)
      text += (text.empty() ? L"errors: " : L", ") + std::wstring(name);
  }
  co_return text.empty() ? L"no errors" : text;
}

}  // namespace tarnwheel::client
