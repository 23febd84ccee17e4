// The device-control requests of a remote serial line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "async/future.h"
#include "async/timer.h"
#include "client/line/line_settings.h"
#include "client/line/server_connection.h"
#include "platform/serial.h"

namespace tarnwheel::client {

// Longer than any driver takes, yet short enough for programs that wait for the result.
inline constexpr std::chrono::milliseconds kControlLimit(2000);

// Changes of the modem lines.
inline constexpr std::uint32_t kModemEvents =
    SERIAL_EV_CTS | SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_RING;

enum class purged { input, output, both };

// Completes with true if the request succeeded, with false if it failed; does not fail itself.
ostra::future<bool> accepted(ostra::future<void> request);

// Requests may be made from any thread, several at a time. They complete on their own: a future may
// be dropped, and may outlive this unless its function says otherwise. They fail with client_error.
//
// A request that the device does not know, or fails, gets no answer: it fails alone, at its limit.
// A control code that the device has never answered is not sent a second time: from then on it
// fails at once, as does the code for the opposite setting.
class line_controls {
 public:
  // `server`, whose port is open, must outlive this.
  line_controls(server_connection& server, std::wstring name);

  // Sets rate, control and flow control in turn. Must complete before this is destroyed.
  ostra::future<void> set_line(line_settings settings);

  // The errors of the first two name the setting. `settings` must be such as the options can have.
  ostra::future<void> set_baud_rate(std::uint32_t rate);
  ostra::future<void> set_line_control(SERIAL_LINE_CONTROL settings);
  ostra::future<void> set_flow_control(flow_control kind);

  // The driver's queues, in bytes, in each direction.
  ostra::future<void> set_queue_size(std::uint32_t size);

  // Makes reads complete with all their bytes, with fewer after a gap, or after `limit`; writes
  // complete when everything is written.
  ostra::future<void> set_read_limit(std::chrono::milliseconds limit);

  // The last setting of DTR and RTS survives a change of flow control.
  ostra::future<void> set_dtr(bool on);
  ostra::future<void> set_rts(bool on);
  ostra::future<void> set_break(bool on);

  // Sends a break of the usual length, a quarter of a second. Cancelling `time` fails this with
  // timer_cancelled and leaves the break on. Must complete before this is destroyed.
  ostra::future<void> send_break(ostra::async_timer& time);

  // Never aborts a read in flight: the device would leave it without an answer.
  ostra::future<void> purge(purged what);

  // Sets the SERIAL_EV_* that a wait for events reports. The wait has no limit and completes with 0
  // when the device has no events.
  ostra::future<void> set_event_mask(std::uint32_t events);
  ostra::future<std::uint32_t> wait_for_events();

  // MS_CTS_ON and so on.
  ostra::future<std::uint32_t> modem_status();
  ostra::future<std::uint32_t> baud_rate(std::chrono::milliseconds limit = kControlLimit);

  // Errors (SERIAL_ERROR_*), which the device clears once it has reported them, and the state of
  // its queues. Does not fail: everything is zero if the device does not report it.
  ostra::future<SERIAL_STATUS> line_status();

  // True if the device has answered this control code, or the one for the opposite setting.
  [[nodiscard]] bool has_answered(std::uint32_t code) const;

  // The longest time that a write of `size` bytes may take at the present baud rate. Zero, for no
  // limit, before the rate is set and while flow control may hold the write up.
  [[nodiscard]] std::chrono::milliseconds write_limit(std::size_t size) const;

 private:
  // Kept alive beyond this by requests that are still unanswered.
  struct state;
  using bytes = std::vector<std::byte>;

  // Sends one request; the functions above are built on it.
  template <class Result = void>
  ostra::future<Result> request(std::uint32_t code, bytes input = {},
                                std::chrono::milliseconds limit = kControlLimit);

  server_connection& server_;
  const std::wstring name_;
  const std::shared_ptr<state> state_;
};

}  // namespace tarnwheel::client
