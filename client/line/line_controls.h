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

// Longer than any driver takes; short enough for programs that wait for what depends on it.
inline constexpr std::chrono::milliseconds kControlLimit(2000);

// The changes of the modem lines.
inline constexpr std::uint32_t kModemEvents =
    SERIAL_EV_CTS | SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_RING;

enum class purged { input, output, both };

// Says whether the request has gone well; does not fail.
ostra::future<bool> accepted(ostra::future<void> request);

// Requests may be made from any thread, several at a time, and end on their own: futures may be
// dropped, and may outlive this. They fail with client_error.
//
// A device that does not know a request, or fails it, leaves it without an answer. Then only this
// request has failed, at its limit; and a control code to which the device has never given an
// answer is not asked a second time: from then on it fails at once, as does the code for the
// opposite.
class line_controls {
 public:
  // `server`, whose port is open, must outlive this.
  line_controls(server_connection& server, std::wstring name);

  // Rate, control and flow control, one after another. Completes before this is destroyed.
  ostra::future<void> set_line(line_settings settings);

  // The error names the setting. `settings` are such as the options can have.
  ostra::future<void> set_baud_rate(std::uint32_t rate);
  ostra::future<void> set_line_control(SERIAL_LINE_CONTROL settings);
  ostra::future<void> set_flow_control(flow_control kind);

  // The driver's queues, in bytes, in each direction.
  ostra::future<void> set_queue_size(std::uint32_t size);

  // Reads are to end with all their bytes, or with less after a gap in them, or after `limit`;
  // writes when all is written.
  ostra::future<void> set_read_limit(std::chrono::milliseconds limit);

  // The last setting of DTR and RTS survives a change of flow control.
  ostra::future<void> set_dtr(bool on);
  ostra::future<void> set_rts(bool on);
  ostra::future<void> set_break(bool on);

  // A break of the usual length, a quarter of a second. Cancelling `time` cuts it short and fails
  // this with timer_cancelled; the break goes on then.
  ostra::future<void> send_break(ostra::async_timer& time);

  // Never touches a read that is under way: the device would leave it without an answer.
  ostra::future<void> purge(purged what);

  // SERIAL_EV_* that a wait for events is to report. The wait has no limit; it gives 0 when the
  // device has no events.
  ostra::future<void> set_event_mask(std::uint32_t events);
  ostra::future<std::uint32_t> wait_for_events();

  // MS_CTS_ON and so on.
  ostra::future<std::uint32_t> modem_status();
  ostra::future<std::uint32_t> baud_rate(std::chrono::milliseconds limit = kControlLimit);

  // Errors (SERIAL_ERROR_*), which the device forgets once it has told them, and queues. Does not
  // fail: all is zero where the device does not report it.
  ostra::future<SERIAL_STATUS> line_status();

  // True when the device has given an answer to this control code, or the one for the opposite.
  [[nodiscard]] bool has_answered(std::uint32_t code) const;

  // The longest time that a write of `size` bytes may take: as the baud rate gives it, or zero, for
  // no limit, while flow control may hold it up.
  [[nodiscard]] std::chrono::milliseconds write_limit(std::size_t size) const;

 private:
  // Outlives this in the requests that are still without an answer.
  struct state;
  using bytes = std::vector<std::byte>;

  // One request: everything above is one of them, or a few.
  template <class Result = void>
  ostra::future<Result> request(std::uint32_t code, bytes input = {},
                                std::chrono::milliseconds limit = kControlLimit);

  server_connection& server_;
  const std::wstring name_;
  const std::shared_ptr<state> state_;
};

}  // namespace tarnwheel::client
