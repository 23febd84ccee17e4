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
#include "async/srw_lock.h"
#include "client/line/remote_line.h"
#include "client/streams/byte_stream.h"
#include "client/streams/stream_writer.h"

namespace tarnwheel::client {

// Passes bytes through unchanged; derived classes add other operations of a program on the line.
// Memory is bounded in both directions: neither side is read while the other is not taking data.
//
// `line` must outlive run() and the calls about idle time. Everything may be called on any thread,
// even after the program has gone.
class bridge_session : public std::enable_shared_from_this<bridge_session> {
 public:
  bridge_session(std::shared_ptr<byte_stream> program, remote_line& line);
  bridge_session(const bridge_session&) = delete;
  bridge_session& operator=(const bridge_session&) = delete;
  virtual ~bridge_session() = default;

  // Serves the program; call it once. Completes when the program has gone, or close() was called;
  // after that the line is not used any more. While the line takes no bytes, close() takes effect
  // only when the line ends as well. On completion the program's last bytes may still be queued.
  [[nodiscard]] ostra::future<void> run();

  virtual void close() noexcept;

  // Closes the session unless idle_time() is less than `limit`; false if it remains open.
  [[nodiscard]] bool close_if_idle(std::chrono::steady_clock::duration limit) noexcept;

  [[nodiscard]] bool is_closed() const noexcept;

  // Completes when the line has taken everything that the program had sent, or has ended; after
  // half a minute at the latest, since flow control may hold the line up for ever.
  [[nodiscard]] ostra::future<void> drain();

  // Sends the line's bytes to the program; completes when they are written or discarded.
  [[nodiscard]] ostra::future<void> deliver(std::vector<std::byte> bytes);

  // Reports SERIAL_EV_* that have happened on the line.
  void changed(std::uint32_t events);

  // The time since the program last sent or took bytes, or the line the bytes that it had sent; zero
  // while the line still has some to take.
  [[nodiscard]] std::chrono::steady_clock::duration idle_time() const noexcept;

 protected:
  // Run before and after serving. An hresult_error from begin() means that the program has gone.
  [[nodiscard]] virtual ostra::future<void> begin();
  [[nodiscard]] virtual ostra::future<void> end();

  // Writes the line's bytes to the program, in whatever way it understands.
  [[nodiscard]] virtual ostra::future<void> send(std::vector<std::byte> bytes);

  // Receives the program's bytes. After a long wait it checks is_closed().
  [[nodiscard]] virtual ostra::future<void> take(std::vector<std::byte> bytes);

  // Handles events of the line, in a coroutine of its own, from begin() to end(): the events that
  // happen during one call are combined into one further call. An hresult_error ends the coroutine.
  [[nodiscard]] virtual ostra::future<void> notify_of(std::uint32_t events);

  [[nodiscard]] remote_line& line() const noexcept { return line_; }
  [[nodiscard]] stream_writer& to_program() noexcept { return to_program_; }

 private:
  using clock = std::chrono::steady_clock;

  ostra::future<void> follow_line();
  bool note_activity() noexcept;
  [[nodiscard]] clock::duration idle_for() const noexcept;

  const std::shared_ptr<byte_stream> program_;
  remote_line& line_;
  stream_writer to_program_;

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  bool closed_ = false;
  clock::time_point active_ = clock::now();

  std::atomic<std::uint32_t> events_ = 0;  // not yet passed to notify_of()
  ostra::async_event news_{false};         // set on an event, or at the end
};

}  // namespace tarnwheel::client
