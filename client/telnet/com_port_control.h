// Control of a serial port over Telnet: the server's side of RFC 2217.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "async/event.h"
#include "async/future.h"
#include "async/timer.h"
#include "client/line/remote_line.h"
#include "client/telnet/com_port_notices.h"

namespace tarnwheel::client {

// The port's settings in effect. They outlive each client.
struct com_port_settings {
  line_settings line;
  bool break_on = false;
  bool dtr_on = true;
  bool rts_on = true;
};

// Serves one client. execute() is called by one coroutine at a time; everything else may be called
// on any thread meanwhile. Payloads are those of the option's subnegotiations. The futures do not
// fail, and must complete before this is destroyed.
class com_port_control {
 public:
  using payload = std::vector<std::byte>;

  // `line` and `settings` must outlive this.
  com_port_control(remote_line& line, com_port_settings& settings, std::string signature)
      : line_(line), settings_(settings), signature_(std::move(signature)) {}

  // Executes a client's command and completes with the answer: the state that is then in effect,
  // whether or not it is the one requested. Empty if no answer is due, as for a malformed command.
  // A size or rate that is already in effect is not sent to the device: clients send all of them to
  // change one, and each refusal costs the whole time limit of a request.
  ostra::future<payload> execute(std::vector<std::byte> command);

  [[nodiscard]] com_port_notices& notices() noexcept { return notices_; }

  // MS_CTS_ON and so on; 0 from a device that has no such lines.
  ostra::future<std::uint32_t> modem_status();

  // Completes when the client accepts data and notices, which it may suspend until close().
  [[nodiscard]] ostra::future<void> flowing() { return flowing_.wait(); }
  void close();

  // The number of times that the client has purged the input.
  [[nodiscard]] unsigned input_purges() const noexcept { return input_purges_; }

  // Has the effect of the commands that turn a break on and, after the usual time, off. One call at
  // a time; close() cuts it short.
  ostra::future<void> send_break();

  // Ends a break that the client has left on.
  ostra::future<void> end_break();

 private:
  struct signal;
  static const signal kSignals[3];

  ostra::future<payload> execute(std::uint8_t code, std::uint8_t value);
  ostra::future<payload> set_baud_rate(std::uint32_t rate);
  ostra::future<payload> set_size(std::uint8_t command, std::uint8_t value);
  ostra::future<payload> set_control(std::uint8_t value);
  ostra::future<payload> set_flow(std::uint8_t value);
  ostra::future<payload> set_signal(const signal& changed, bool on);
  ostra::future<payload> purge(std::uint8_t value);
  ostra::future<payload> tell_modem_state();
  void suspend(bool suspended);

  [[nodiscard]] payload own_signature() const;
  [[nodiscard]] payload signal_state(const signal& asked) const;
  [[nodiscard]] payload flow_state(std::uint8_t value) const;
  [[nodiscard]] payload set_mask(std::uint8_t command, std::uint8_t value);

  remote_line& line_;
  com_port_settings& settings_;
  const std::string signature_;

  std::atomic<unsigned> input_purges_ = 0;
  std::atomic<bool> closed_ = false;
  ostra::async_event flowing_{true};
  ostra::async_timer break_time_;
  com_port_notices notices_;
};

}  // namespace tarnwheel::client
