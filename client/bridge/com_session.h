// A program behind a local serial device.
#pragma once

#include <memory>

#include "client/bridge/bridge_session.h"
#include "client/streams/com_listener.h"
#include "client/streams/insertion_decoder.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

// Joins the device with the line as a cable would: RTS and DTR of either side are CTS and DSR of the
// other, and breaks go both ways; the program's settings are the line's, where the device tells them.
//
// Besides the two directions of bytes there are three coroutines, which hold this object and are waited
// for before run() completes: one follows the line's events, one the device's, and one, which the first
// begins, is the break that the device is sending. They share no member. What the device inserts, the
// settings and a break of the program among it, belongs to the reading coroutine; a break that is an
// event belongs to the one that follows the device, and no device has both. close() cancels the
// device's calls and both breaks, before, during or after their start; a request to the line ends at
// its limit.
class com_session final : public bridge_session {
 public:
  // `settings` are those of the line, and outlive this as it does.
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
  insertion_decoder decoder_;  // of the reading coroutine
  ostra::future<void> following_;
  ostra::future<void> breaking_;
  ostra::async_timer break_time_;
};

}  // namespace tarnwheel::client
