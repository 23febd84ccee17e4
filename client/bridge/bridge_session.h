// One program at one end of a bridge, and the line at the other.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "async/event.h"
#include "async/future.h"
#include "client/line/remote_line.h"
#include "client/streams/byte_stream.h"
#include "client/streams/stream_writer.h"

namespace tarnwheel::client {

// Passes bytes through unchanged; derived classes add whatever else a program may do to a line.
// Memory is bounded in both directions: neither side is read while the other is not taking data.
//
// `line` must outlive run(). Everything else may be called from any thread, also when the program
// has gone.
class bridge_session : public std::enable_shared_from_this<bridge_session> {
 public:
  bridge_session(std::shared_ptr<byte_stream> program, remote_line& line);
  bridge_session(const bridge_session&) = delete;
  bridge_session& operator=(const bridge_session&) = delete;
  virtual ~bridge_session() = default;

  // Serves the program; to be called once. Completes when it has gone, or close() was called; the
  // line is not used any more then. A close() while the line takes nothing needs the end of the
  // line as well. What the program had sent before it went is still on its way then.
  [[nodiscard]] ostra::future<void> run();

  virtual void close() noexcept;

  // Completes when the line has taken what the program had sent before it went, or has ended; after
  // half a minute at the latest, since flow control may hold the line up for ever.
  [[nodiscard]] ostra::future<void> drain();

  // Sends the line's bytes to the program; completes when they are taken, or never will be.
  [[nodiscard]] ostra::future<void> deliver(std::vector<std::byte> bytes);

  // SERIAL_EV_* have happened on the line.
  void changed(std::uint32_t events);

  // The time since the program has sent a byte, or taken one.
  [[nodiscard]] std::chrono::steady_clock::duration idle_time() const noexcept;

 protected:
  // Around the serving. A failure of begin(), an hresult_error, means that the program has gone.
  [[nodiscard]] virtual ostra::future<void> begin();
  [[nodiscard]] virtual ostra::future<void> end();

  // Writes the line's bytes to the program, in whatever way it understands.
  [[nodiscard]] virtual ostra::future<void> send(std::vector<std::byte> bytes);

  // Receives the program's bytes.
  [[nodiscard]] virtual ostra::future<void> take(std::vector<std::byte> bytes);

  // Follows events of the line, in a coroutine of its own, from begin() to end(): whatever happens
  // while one call is under way becomes one further call. An hresult_error ends that.
  [[nodiscard]] virtual ostra::future<void> notify_of(std::uint32_t events);

  [[nodiscard]] remote_line& line() const noexcept { return line_; }
  [[nodiscard]] stream_writer& to_program() noexcept { return to_program_; }

 private:
  ostra::future<void> follow_line();

  const std::shared_ptr<byte_stream> program_;
  remote_line& line_;
  stream_writer to_program_;
  std::atomic<std::chrono::steady_clock::time_point> active_ = std::chrono::steady_clock::now();

  std::atomic<bool> closed_ = false;
  std::atomic<std::uint32_t> events_ = 0;  // that nobody has been told of
  ostra::async_event news_{false};         // set when there is an event, or the end
};

}  // namespace tarnwheel::client
