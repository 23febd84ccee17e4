// A program behind a local serial device.
#pragma once

#include <memory>

#include "client/bridge/bridge_session.h"
#include "client/streams/com_listener.h"
#include "client/streams/insertion_decoder.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

// Connects the device with the line as a cable would: RTS and DTR of either side are CTS and DSR of
// the other, and breaks go both ways. The program's settings apply to the line, if the device
// reports them.
//
// Besides the two directions of bytes there are three coroutines, which keep this object alive and
// complete before run() does: one follows the line's events, one the device's, and one, which the
// first starts, sends a break on the device. They share no member. The device's insertions, which
// include the program's settings and breaks, belong to the reading coroutine; a break that is
// reported as an event belongs to the one that follows the device, and no device reports both.
// close() cancels the device's calls and both breaks, before, during or after their start; a
// request to the line ends at its limit.
class com_session final : public bridge_session {
 public:
  // `settings` are those of `line`; both must outlive this.
  com_session(std::shared_ptr<com_stream> device, remote_line& line, com_port_settings& settings);

  void close() noexcept override;

 private:
  ostra::future<void> begin() override;
  ostra::future<void> end() override;
  ostra::future<void> take(std::vector<std::byte> bytes) override;
  ostra::future<void> notify_of(std::uint32_t events) override;

  ostra::future<void> follow_device();
  ostra::future<void> break_device();
  ostra::future<void> pass_on(received_item item);
  ostra::future<void> told(ostra::future<void> setting);

  const std::shared_ptr<com_stream> device_;
  com_port_settings& settings_;
  com_port_control control_;
  insertion_decoder decoder_;  // used by the reading coroutine
  ostra::future<void> following_;
  ostra::future<void> breaking_;
  ostra::async_timer break_time_;
};

}  // namespace tarnwheel::client
