#include "client/bridge/com_session.h"

#include <utility>

#include "client/line/control_bytes.h"
#include "console/print.h"

namespace tarnwheel::client {
namespace {

constexpr std::chrono::milliseconds kBreakTime(250);
constexpr std::byte kBreakInterrupt{0x10};  // in a line status, for as long as the break lasts

// False for settings that no program can have made, as on a device that was never opened.
bool is_real(const SERIAL_LINE_CONTROL& settings) {
  return settings.WordLength >= 5 && settings.WordLength <= 8 && settings.Parity <= SPACE_PARITY &&
         settings.StopBits <= STOP_BITS_2;
}

bool differ(const SERIAL_LINE_CONTROL& left, const SERIAL_LINE_CONTROL& right) {
  return left.StopBits != right.StopBits || left.Parity != right.Parity ||
         left.WordLength != right.WordLength;
}

}  // namespace

com_session::com_session(std::shared_ptr<com_stream> device, remote_line& line,
                         com_port_settings& settings)
    : bridge_session(device, line),
      device_(std::move(device)),
      settings_(settings),
      control_(line, settings, {}) {}

ostra::future<void> com_session::begin() {
  following_ = follow_device();
  changed(SERIAL_EV_CTS);  // no event reports the initial state
  if (!device_->inserts())
    co_return;
  auto asked = device_->state();
  auto inserted = co_await asked;
  auto taken = take(std::move(inserted));
  co_await taken;
}

// Waits until the line has taken everything that the program had sent, since it may be closed next.
ostra::future<void> com_session::end() {
  co_await following_;
  if (breaking_.valid())
    co_await breaking_;
  auto drained = drain();
  co_await drained;
  auto done = control_.end_break();
  co_await done;
}

void com_session::close() noexcept {
  bridge_session::close();
  control_.close();
  break_time_.cancel();
}

ostra::future<void> com_session::take(std::vector<std::byte> bytes) {
  std::vector<received_item> items;
  if (device_->inserts())
    items = decoder_.decode(bytes);
  else
    items.push_back({insertion::data, std::move(bytes)});
  for (received_item& item : items) {
    auto done = pass_on(std::move(item));
    co_await done;
  }
}

// A change that the program made between two bytes takes effect between these two.
ostra::future<void> com_session::pass_on(received_item item) {
  ostra::future<void> done;
  if (item.what == insertion::data) {
    done = line().write(std::move(item.bytes));
    co_await done;
    co_return;
  }
  auto drained = line().drained();
  co_await drained;
  auto& present = settings_.line;
  if (item.what == insertion::line_status) {
    const bool on = (item.bytes[0] & kBreakInterrupt) != std::byte{};
    if (on != std::exchange(settings_.break_on, on))
      done = told(line().controls().set_break(on));
  } else if (item.what == insertion::baud_rate) {
    const auto rate = result_of<SERIAL_BAUD_RATE>(item.bytes);
    if (rate.BaudRate != 0 && rate.BaudRate != std::exchange(present.baud_rate, rate).BaudRate)
      done = told(line().controls().set_baud_rate(rate.BaudRate));
  } else if (item.what == insertion::line_control) {
    const auto value = [&item](std::size_t i) { return std::to_integer<UCHAR>(item.bytes[i]); };
    const SERIAL_LINE_CONTROL wanted = {value(2), value(1), value(0)};
    if (is_real(wanted) && differ(wanted, std::exchange(present.control, wanted)))
      done = told(line().controls().set_line_control(wanted));
  }
  if (done.valid())
    co_await done;
}

// Tells the user of a setting that the device refuses, as there is no way to tell the program.
ostra::future<void> com_session::told(ostra::future<void> setting) {
  try {
    co_await setting;
  } catch (const client_error& error) {
    if (error.kind() == failure::device)
      console::print(console::standard_stream::error, error.message() + L"\n");
  }
}

ostra::future<void> com_session::follow_device() {
  const auto self = shared_from_this();
  auto& controls = line().controls();
  try {
    std::uint32_t events = 0;
    do {
      if ((events & SERIAL_EV_BREAK) != 0) {
        auto sent = control_.send_break();
        co_await sent;
      }
      auto asked = device_->modem_status();
      const std::uint32_t status = co_await asked;
      auto rts_set = accepted(controls.set_rts((status & SERIAL_CTS_STATE) != 0));
      co_await rts_set;
      auto dtr_set = accepted(controls.set_dtr((status & SERIAL_DSR_STATE) != 0));
      co_await dtr_set;
      auto wait = device_->wait_for_events(device_->token());
      events = co_await wait;
    } while (events != 0);
  } catch (const ostra::hresult_error&) {
    // The session ends, or the device has gone, which the read detects too.
  }
}

ostra::future<void> com_session::notify_of(std::uint32_t events) {
  if ((events & SERIAL_EV_BREAK) != 0 && (!breaking_.valid() || breaking_.is_complete()))
    breaking_ = break_device();
  if ((events & kModemEvents) == 0)
    co_return;
  auto asked = control_.modem_status();
  std::uint32_t status = co_await asked;
  // A program may wait for these signals, so they are on if the line lacks them.
  if (!line().controls().has_answered(IOCTL_SERIAL_GET_MODEMSTATUS))
    status = SERIAL_CTS_STATE | SERIAL_DSR_STATE;
  const bool cts = (status & SERIAL_CTS_STATE) != 0;
  auto rts_set = device_->control(cts ? IOCTL_SERIAL_SET_RTS : IOCTL_SERIAL_CLR_RTS);
  co_await rts_set;
  const bool dsr = (status & SERIAL_DSR_STATE) != 0;
  auto dtr_set = device_->control(dsr ? IOCTL_SERIAL_SET_DTR : IOCTL_SERIAL_CLR_DTR);
  co_await dtr_set;
}

// Only the beginning of a break is known, and is reported in several ways, so further reports
// during a break mean the same one.
ostra::future<void> com_session::break_device() {
  const auto self = shared_from_this();
  try {
    auto begun = device_->control(IOCTL_SERIAL_SET_BREAK_ON);
    co_await begun;
    auto over = break_time_.wait(kBreakTime);
    co_await over;
    auto ended = device_->control(IOCTL_SERIAL_SET_BREAK_OFF);
    co_await ended;
  } catch (const ostra::hresult_error&) {
    // The session ends, and closing the device ends the break.
  }
}

}  // namespace tarnwheel::client
