// Control of a serial port over Telnet: the server's side of RFC 2217.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/line_controls.h"

namespace tarnwheel::client {

// The port as it is controlled here. The futures do not fail: they are false when the port refuses.
class com_port {
 public:
  virtual ostra::future<bool> set_baud_rate(std::uint32_t rate) = 0;
  virtual ostra::future<bool> set_line_control(SERIAL_LINE_CONTROL settings) = 0;
  virtual ostra::future<bool> set_flow_control(flow_control kind) = 0;
  virtual ostra::future<bool> set_break(bool on) = 0;
  virtual ostra::future<bool> set_dtr(bool on) = 0;
  virtual ostra::future<bool> set_rts(bool on) = 0;
  virtual ostra::future<bool> purge(purged what) = 0;

  // MS_CTS_ON and so on; 0 from a port that has no such lines.
  virtual ostra::future<std::uint32_t> modem_status() = 0;

  // Whether data and notifications are to be held back from the client.
  virtual void suspend(bool suspended) = 0;

 protected:
  ~com_port() = default;
};

// How the port is set; outlives the clients.
struct com_port_settings {
  line_settings line;
  bool break_on = false;
  bool dtr_on = true;
  bool rts_on = true;
};

// Serves one client. execute() is called by one coroutine at a time, the notices may be asked for
// from any thread meanwhile. Payloads are those of the option's subnegotiations.
class com_port_control {
 public:
  // `port` and `settings` must outlive this.
  com_port_control(com_port& port, com_port_settings& settings, std::string signature)
      : port_(port), settings_(settings), signature_(std::move(signature)) {}

  // Does what the client asks, and gives the answer: the state that is in effect then, whether or
  // not it is the one that was asked for. Empty when there is nothing to answer, as for what makes
  // no sense. The port is not bothered with a size or rate that it has already: clients send all of
  // them to change one, and each that a device refuses takes the time that it has for its answer.
  ostra::future<std::vector<std::byte>> execute(std::vector<std::byte> command);

  // What the client is to be told of the modem lines' state (MS_CTS_ON and so on) or of errors
  // (SERIAL_ERROR_*); empty when its mask leaves nothing of it. A first notice tells all lines. A
  // ring is told by its end, when the line is as it was before.
  [[nodiscard]] std::vector<std::byte> modem_notice(std::uint32_t status, bool rang = false);
  [[nodiscard]] std::vector<std::byte> line_notice(std::uint32_t errors);

 private:
  using payload = std::vector<std::byte>;
  using setter = ostra::future<bool> (com_port::*)(bool);

  ostra::future<payload> execute(std::uint8_t code, std::uint8_t value);
  ostra::future<payload> set_baud_rate(std::uint32_t rate);
  ostra::future<payload> set_size(std::uint8_t command, std::uint8_t value);
  ostra::future<payload> set_control(std::uint8_t value);
  ostra::future<payload> set_flow(std::uint8_t value);
  ostra::future<payload> set_signal(setter set, bool& state, bool on, std::uint8_t code_when_on);
  ostra::future<payload> purge(std::uint8_t value);
  ostra::future<payload> tell_modem_state();

  [[nodiscard]] payload own_signature() const;
  [[nodiscard]] payload control_state(std::uint8_t value) const;
  [[nodiscard]] payload set_mask(std::uint8_t command, std::uint8_t value);
  [[nodiscard]] std::uint8_t next_modem_state(std::uint32_t status);

  com_port& port_;
  com_port_settings& settings_;
  const std::string signature_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::uint8_t line_mask_ = 0;
  std::uint8_t modem_mask_ = 0xFF;
  std::uint8_t lines_ = 0;  // the modem lines as they were told last
  bool told_ = false;
};

}  // namespace tarnwheel::client
