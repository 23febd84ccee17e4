// The notices that the server's side of RFC 2217 sends to its client.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "async/srw_lock.h"

namespace tarnwheel::client {

// The payloads of the option's notices, which the client's masks limit. `status` has MS_CTS_ON and
// so on, `errors` has SERIAL_ERROR_*. Any thread.
class com_port_notices {
 public:
  using payload = std::vector<std::byte>;

  // Notices of the modem lines' state and of errors; empty when the client's mask suppresses them.
  // The first notice reports all lines. `rang` reports a ring that has ended, which leaves the line
  // unchanged.
  [[nodiscard]] payload modem_state(std::uint32_t status, bool rang = false);
  [[nodiscard]] payload line_state(std::uint32_t errors);

  // As modem_state(), for a client that asks: the mask does not apply.
  [[nodiscard]] payload requested_modem_state(std::uint32_t status);

  void set_modem_mask(std::uint8_t mask);
  void set_line_mask(std::uint8_t mask);

 private:
  [[nodiscard]] std::uint8_t next_modem_state(std::uint32_t status);

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::uint8_t line_mask_ = 0;
  std::uint8_t modem_mask_ = 0xFF;
  std::uint8_t lines_ = 0;  // the modem lines as last reported
  bool notified_ = false;
};

}  // namespace tarnwheel::client
