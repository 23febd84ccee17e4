// The device-control requests of a remote serial line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/line_settings.h"
#include "client/line/server_connection.h"
#include "platform/serial.h"

namespace tarnwheel::client {

// Longer than any driver takes; short enough for programs that wait for what depends on it.
inline constexpr std::chrono::milliseconds kControlLimit(2000);

enum class purged { input, output, both };

// Requests may be made from any thread, several at a time, and end on their own: futures may be
// dropped, and may outlive this. They fail with client_error.
//
// A device that knows nothing of a request, or fails it, leaves it without an answer. Then only
// this request has failed, at its limit; and a control code to which the device has never given an
// answer is not asked a second time: from then on it fails at once, as does the code for the
// opposite.
class line_controls {
 public:
  // `server`, whose port is open, must outlive this.
  line_controls(server_connection& server, std::wstring name)
      : server_(server), name_(std::move(name)) {}

  ostra::future<void> set_baud_rate(std::uint32_t rate);
  ostra::future<void> set_line_control(SERIAL_LINE_CONTROL settings);
  ostra::future<void> set_flow_control(flow_control kind);

  // Reads are to end as soon as a byte is there, or without one after `limit`; writes when all is
  // written.
  ostra::future<void> set_read_limit(std::chrono::milliseconds limit);

  // What DTR and RTS were set to last survives a change of the flow control.
  ostra::future<void> set_dtr(bool on);
  ostra::future<void> set_rts(bool on);
  ostra::future<void> set_break(bool on);

  // Never touches a read that is under way: the device would leave it without an answer.
  ostra::future<void> purge(purged what);

  // SERIAL_EV_* of which a wait for events is to tell.
  ostra::future<void> set_event_mask(std::uint32_t events);

  // MS_CTS_ON and so on; the baud rate; errors (SERIAL_ERROR_*), which are forgotten once told, and
  // queues.
  ostra::future<std::uint32_t> modem_status();
  ostra::future<std::uint32_t> baud_rate(std::chrono::milliseconds limit = kControlLimit);
  ostra::future<SERIAL_STATUS> line_status();

  // True when the device has given an answer to this control code, or the one for the opposite.
  [[nodiscard]] bool has_answered(std::uint32_t code) const;

 private:
  // Of control codes. Outlives this in the requests that are still without an answer.
  struct answers {
    ostra::srw_lock lock;
    std::set<std::uint32_t> given;   // guarded by lock
    std::set<std::uint32_t> missed;  // guarded by lock
  };

  template <class Settings>
  ostra::future<void> set(std::uint32_t code, const Settings& settings);
  ostra::future<void> set(std::uint32_t code);
  template <class Result>
  ostra::future<Result> get(std::uint32_t code, std::chrono::milliseconds limit = kControlLimit);

  ostra::future<tether::bytes_result> request(std::uint32_t code, std::uint32_t output_size,
                                              std::span<const std::byte> input,
                                              std::chrono::milliseconds limit);
  static ostra::future<tether::bytes_result> note_answer(std::shared_ptr<answers> answers,
                                                         std::uint32_t code,
                                                         ostra::future<tether::bytes_result> call);
  static ostra::future<tether::bytes_result> note_miss(std::shared_ptr<answers> answers,
                                                       std::uint32_t code, std::wstring name,
                                                       ostra::future<tether::bytes_result> answer);

  server_connection& server_;
  const std::wstring name_;
  const std::shared_ptr<answers> answers_ = std::make_shared<answers>();

  // Guarded by lock_.
  ostra::srw_lock lock_;
  flow_control flow_ = flow_control::none;
  bool dtr_ = true;
  bool rts_ = true;
};

}  // namespace tarnwheel::client
