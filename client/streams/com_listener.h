// A local serial device with a program at its far end: one end of a null modem, virtual or real.
#pragma once

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

// Sets the event on destruction. As the first base class it is destroyed after the handle, so the
// device is closed by then.
struct closing_signal {
  std::shared_ptr<ostra::auto_reset_event> closed;
  ~closing_signal() { closed->set(); }
};

// The opened device: RTS of the program's end is CTS here, DTR is DSR. Futures fail with
// hresult_error, after cancel() with operation_cancelled; each call keeps the stream alive until it
// completes. Call set_up() first; after that any thread may call.
class com_stream final : private closing_signal, public handle_stream<Tamrin::unique_file> {
 public:
  using bytes = std::vector<std::byte>;

  // Opens the device; throws hresult_error. `signal` is set when the device is closed again. With
  // `ends_with_program` the stream ends when DSR is off and everything has been read.
  com_stream(std::wstring name, bool ends_with_program,
             std::shared_ptr<ostra::auto_reset_event> signal);
  [[nodiscard]] ostra::future<void> set_up();

  // True if the device inserts the program's settings and breaks among the bytes, which are then
  // for an insertion_decoder. Constant after set_up().
  [[nodiscard]] bool inserts() const noexcept { return inserts_; }

  // The program's present settings and break, as insertions.
  [[nodiscard]] ostra::future<bytes> state();

  // Performs a device control, within kControlLimit; completes with the output.
  [[nodiscard]] ostra::future<bytes> control(std::uint32_t code, bytes input = {},
                                             std::size_t output_size = 0);

  // SERIAL_CTS_STATE and so on.
  [[nodiscard]] ostra::future<std::uint32_t> modem_status();

  // Completes with the SERIAL_EV_* since the last wait: changes of CTS and DSR and, where the
  // device does not insert them, breaks. One call at a time; `token` cancels it.
  [[nodiscard]] ostra::future<std::uint32_t> wait_for_events(ostra::cancellation_token token);
  [[nodiscard]] const ostra::cancellation_token& token() const { return handle().token(); }

  ostra::future<std::size_t> read(std::span<std::byte> buffer) override;
  void finish() noexcept override {}
  [[nodiscard]] std::wstring peer() const override { return name_; }

 private:
  ostra::future<bytes> perform(std::uint32_t code, bytes input, std::size_t output_size,
                               ostra::cancellation_token token);
  ostra::future<bool> begin_insertions();

  const std::wstring name_;
  const bool ends_with_program_;
  bool inserts_ = false;
};

// Opens the device of this name, such as COM20 or CNCB0, for one stream after another: the next one
// follows when the one before is closed and, with `while_program_is_there`, DSR is on. Throws
// client_error, as accept() does when the device has gone, after which no stream follows. Reports
// on standard error if the device does not report settings. Throws cmd_line_syntax_error for a name
// that no device can have.
[[nodiscard]] std::unique_ptr<stream_listener> listen_com(std::wstring_view name,
                                                          bool while_program_is_there);

}  // namespace tarnwheel::client
