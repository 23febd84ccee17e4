#include "client/bridge/com_session.h"

#include <algorithm>
#include <utility>

#include "client/telnet/com_port_option.h"
#include "console/print.h"

namespace tarnwheel::client {
namespace {

constexpr std::chrono::milliseconds kBreakTime(250);
constexpr std::uint32_t kBreakInterrupt = 0x10;  // in a line status, for as long as the break lasts

std::uint32_t integer_of(const std::vector<std::byte>& bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = bytes.size(); i > 0; --i)
    value = value << 8 | std::to_integer<std::uint32_t>(bytes[i - 1]);
  return value;
}

// A setting that a program cannot have made, such as that of a device which was never opened, is
// none.
line_settings changed_by(const received_item& item, line_settings settings) {
  if (item.what == insertion::baud_rate) {
    const std::uint32_t rate = integer_of(item.bytes);
    if (rate != 0)
      settings.baud_rate.BaudRate = rate;
    return settings;
  }
  const auto value = [&item](std::size_t i) { return std::to_integer<UCHAR>(item.bytes[i]); };
  if (value(0) >= 5 && value(0) <= 8 && value(1) <= SPACE_PARITY && value(2) <= STOP_BITS_2)
    settings.control = {.StopBits = value(2), .Parity = value(1), .WordLength = value(0)};
  return settings;
}

bool same(const SERIAL_LINE_CONTROL& a, const SERIAL_LINE_CONTROL& b) {
  return a.WordLength == b.WordLength && a.Parity == b.Parity && a.StopBits == b.StopBits;
}

}  // namespace

com_session::com_session(std::shared_ptr<com_stream> device, remote_line& line,
                         com_port_settings& settings, bool leaves)
    : bridge_session(device, line),
      device_(std::move(device)),
      settings_(settings),
      leaves_(leaves),
      control_(line, settings, {}) {}

ostra::future<void> com_session::begin() {
  following_ = follow_device();
  changed(SERIAL_EV_CTS);  // no event tells the state at the start
  if (!device_->inserts())
    co_return;
  auto asked = device_->state();
  auto inserted = co_await asked;
  auto taken = take(std::move(inserted));
  co_await taken;
}

ostra::future<void> com_session::end() {
  co_await following_;
  if (breaking_.valid())
    co_await breaking_;
  if (leaves_) {
    auto drained = line().drained();
    co_await drained;
  }
  auto done = control_.end_break();
  co_await done;
}

void com_session::close() noexcept {
  bridge_session::close();
  control_.close();
  break_time_.cancel();
}

ostra::future<void> com_session::take(std::vector<std::byte> bytes) {
  if (!device_->inserts()) {
    auto written = line().write(std::move(bytes));
    co_await written;
    co_return;
  }
  for (received_item& item : decoder_.decode(bytes)) {
    auto done = pass_on(std::move(item));
    co_await done;
  }
}

// What the program has changed between two bytes comes about between these two.
ostra::future<void> com_session::pass_on(received_item item) {
  if (item.what == insertion::data) {
    auto written = line().write(std::move(item.bytes));
    co_await written;
    co_return;
  }
  auto drained = line().drained();
  co_await drained;
  ostra::future<void> done;
  if (item.what == insertion::line_status)
    done = set_break((std::to_integer<std::uint32_t>(item.bytes[0]) & kBreakInterrupt) != 0);
  else if (item.what != insertion::modem_status)
    done = set_line(changed_by(item, settings_.line));
  if (done.valid())
    co_await done;
}

ostra::future<void> com_session::set_break(bool on) {
  if (on == settings_.break_on)
    co_return;
  using namespace com_port_option;
  auto set = control_.execute({std::byte{kSetControl}, std::byte{on ? kBreakOn : kBreakOff}});
  co_await set;
}

ostra::future<void> com_session::set_line(line_settings wanted) {
  auto& controls = line().controls();
  auto& present = settings_.line;
  try {
    if (wanted.baud_rate.BaudRate != present.baud_rate.BaudRate) {
      auto set = controls.set_baud_rate(wanted.baud_rate.BaudRate);
      co_await set;
      present.baud_rate = wanted.baud_rate;
    }
    if (!same(wanted.control, present.control)) {
      auto set = controls.set_line_control(wanted.control);
      co_await set;
      present.control = wanted.control;
    }
  } catch (const client_error& error) {
    if (error.kind() == failure::device)
      console::print(console::standard_stream::error, error.message() + L"\n");
  }
}

ostra::future<void> com_session::follow_device() {
  const auto self = shared_from_this();
  try {
    std::uint32_t events = 0;
    do {
      if ((events & SERIAL_EV_BREAK) != 0) {
        auto sent = control_.send_break();
        co_await sent;
      }
      auto asked = device_->modem_status();
      const std::uint32_t status = co_await asked;
      auto passed_on = pass_on_signals(status);
      co_await passed_on;
      if (leaves_ && (status & SERIAL_DSR_STATE) == 0) {
        auto ended = device_->end_after_input();
        co_await ended;
      }
      auto wait = device_->wait_for_events();
      events = co_await wait;
    } while (events != 0);
  } catch (const ostra::hresult_error&) {
    // The session ends, or the device has gone, which the read notices too.
  }
}

ostra::future<void> com_session::pass_on_signals(std::uint32_t status) {
  auto& controls = line().controls();
  const std::uint32_t changes = signals_ ? *signals_ ^ status : ~0u;
  signals_ = status;
  if ((changes & SERIAL_CTS_STATE) != 0) {
    auto set = accepted(controls.set_rts((status & SERIAL_CTS_STATE) != 0));
    co_await set;
  }
  if ((changes & SERIAL_DSR_STATE) != 0) {
    auto set = accepted(controls.set_dtr((status & SERIAL_DSR_STATE) != 0));
    co_await set;
  }
}

ostra::future<void> com_session::notify_of(std::uint32_t events) {
  if ((events & SERIAL_EV_BREAK) != 0 && (!breaking_.valid() || breaking_.is_complete()))
    breaking_ = break_device();
  if ((events & kModemEvents) == 0)
    co_return;
  auto asked = control_.modem_status();
  std::uint32_t status = co_await asked;
  // A program may wait for these, so a line without them has them on.
  if (!line().controls().has_answered(IOCTL_SERIAL_GET_MODEMSTATUS))
    status = SERIAL_CTS_STATE | SERIAL_DSR_STATE;
  const bool cts = (status & SERIAL_CTS_STATE) != 0;
  auto rts_set = device_->set(cts ? IOCTL_SERIAL_SET_RTS : IOCTL_SERIAL_CLR_RTS);
  co_await rts_set;
  const bool dsr = (status & SERIAL_DSR_STATE) != 0;
  auto dtr_set = device_->set(dsr ? IOCTL_SERIAL_SET_DTR : IOCTL_SERIAL_CLR_DTR);
  co_await dtr_set;
}

// Of a break its beginning alone is known, and that in several ways, so what comes meanwhile is the
// same one.
ostra::future<void> com_session::break_device() {
  const auto self = shared_from_this();
  try {
    auto begun = device_->set(IOCTL_SERIAL_SET_BREAK_ON);
    co_await begun;
    auto over = break_time_.wait(kBreakTime);
    co_await over;
    auto ended = device_->set(IOCTL_SERIAL_SET_BREAK_OFF);
    co_await ended;
  } catch (const ostra::hresult_error&) {
    // The session ends: a device that is closed breaks no longer.
  }
}

}  // namespace tarnwheel::client
