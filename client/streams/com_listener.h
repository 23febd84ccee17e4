// A local serial device behind which a program is: one end of a null modem, virtual or real.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "async/auto_reset_event.h"
#include "client/streams/handle_stream.h"
#include "platform/serial.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {

// Set at its destruction, which in a base class comes after the derived ones have closed their handle.
struct closing_signal {
  std::shared_ptr<ostra::auto_reset_event> closed;
  ~closing_signal() { closed->set(); }
};

// The opened device. RTS of the program's end is CTS here, DTR is DSR. Futures fail with hresult_error,
// at cancel() with operation_cancelled; each call holds the stream until its completion has come, and
// a control has a limit. set_up() comes first; afterwards any thread may call.
class com_stream final : private closing_signal, public handle_stream<Tamrin::unique_file> {
 public:
  // Opens the device, and sets `signal` when it is closed again. Throws hresult_error.
  com_stream(std::wstring name, std::shared_ptr<ostra::auto_reset_event> signal);

  [[nodiscard]] ostra::future<void> set_up();

  // Constant after set_up(). A device that has no modem lines has CTS and DSR on, for ever. One that
  // inserts tells the program's settings and breaks within its bytes, for an insertion_decoder.
  [[nodiscard]] bool has_modem_lines() const noexcept { return has_modem_lines_; }
  [[nodiscard]] bool inserts() const noexcept { return inserts_; }

  // The present state of what it inserts, as insertions.
  [[nodiscard]] ostra::future<std::vector<std::byte>> state();

  // SERIAL_CTS_STATE and so on.
  [[nodiscard]] ostra::future<std::uint32_t> modem_status();

  // SERIAL_EV_* that have happened since the last wait: of CTS and DSR, and where the device does not
  // insert, breaks; 0 from a device without them. One call at a time; `token` cancels it.
  [[nodiscard]] ostra::future<std::uint32_t> wait_for_events(ostra::cancellation_token token);
  [[nodiscard]] ostra::future<std::uint32_t> wait_for_events() {
    return wait_for_events(handle().token());
  }

  // A control without parameters, such as IOCTL_SERIAL_SET_RTS.
  [[nodiscard]] ostra::future<void> set(std::uint32_t code);

  // The program has gone: what it has sent is still read, and then the stream ends.
  [[nodiscard]] ostra::future<void> end_after_input();

  // A read without bytes goes on until the end.
  ostra::future<std::size_t> read(std::span<std::byte> buffer) override;
  void finish() noexcept override {}
  [[nodiscard]] std::wstring peer() const override { return name_; }

 private:
  using bytes = std::vector<std::byte>;

  ostra::future<bytes> control(std::uint32_t code, bytes input, std::size_t output_size);
  ostra::future<bytes> perform(std::uint32_t code, bytes input, std::size_t output_size,
                               ostra::cancellation_token token);
  ostra::future<void> begin_insertions();
  ostra::future<std::uint32_t> unread_bytes();

  const std::wstring name_;

  // Constant after set_up().
  bool has_modem_lines_ = false;
  bool inserts_ = false;

  std::atomic<bool> ending_ = false;
};

// Opens the device of this name, such as COM20 or CNCB0, again for each stream: another one comes when
// the one before is closed, and with `awaits_program` when DSR is on. Throws client_error, as accept()
// does when the device is gone: then nobody comes any more. Says on standard error where the device
// does not tell a program's settings. Throws cmd_line_syntax_error for a name that no device has.
[[nodiscard]] std::unique_ptr<stream_listener> listen_com(std::wstring_view name,
                                                          bool awaits_program);

}  // namespace tarnwheel::client
