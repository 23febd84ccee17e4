// A program behind a local serial device.
#pragma once

#include <memory>
#include <optional>

#include "client/bridge/bridge_session.h"
#include "client/streams/com_listener.h"
#include "client/streams/insertion_decoder.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

// Joins the device with the line as a cable would: RTS and DTR of either side are CTS and DSR of the
// other, and breaks go both ways; the program's settings are the line's, where the device tells them.
//
// Besides the two directions of bytes there are three coroutines, each of which holds this object and
// is waited for before run() completes: one follows the line's events, one the device's, and one is
// the break that the device is sending. The first two share nothing; the third is begun by the first
// alone. Settings and breaks of the program belong to the reading coroutine, unless the device tells
// breaks as events: then to the one that follows these. close() cancels the device's calls and the
// breaks' timers; a call that comes after it is refused, and one on the line ends at its limit.
class com_session final : public bridge_session {
 public:
  // `settings` are those of the line, and outlive this as it does. With `leaves`, the session ends
  // when the program does, and the line has taken what it had sent.
  com_session(std::shared_ptr<com_stream> device, remote_line& line, com_port_settings& settings,
              bool leaves);

  void close() noexcept override;

 private:
  ostra::future<void> begin() override;
  ostra::future<void> end() override;
  ostra::future<void> take(std::vector<std::byte> bytes) override;
  ostra::future<void> notify_of(std::uint32_t events) override;

  ostra::future<void> follow_device();
  ostra::future<void> pass_on_signals(std::uint32_t status);
  ostra::future<void> break_device();
  ostra::future<void> pass_on(received_item item);
  ostra::future<void> set_break(bool on);
  ostra::future<void> set_line(line_settings wanted);

  const std::shared_ptr<com_stream> device_;
  com_port_settings& settings_;
  const bool leaves_;
  com_port_control control_;
  insertion_decoder decoder_;
  std::optional<std::uint32_t> signals_;  // of the program, as the line has them
  ostra::future<void> following_;
  ostra::future<void> breaking_;
  ostra::async_timer break_time_;
};

}  // namespace tarnwheel::client
