// The output queue of a remote serial line.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "async/completion.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/line_controls.h"
#include "client/line/server_connection.h"

namespace tarnwheel::client {

// A bounded queue of bytes, and a coroutine that sends them in order, one write at a time. The
// controls determine the time limit of a write from its size.
//
// Any thread. `server`, whose port is open, and `controls` must outlive this. The destructor waits
// for the writes in flight, one of which may take as long as the connection: so end that first.
class line_output {
 public:
  // There is room while the device has at most this many bytes still to take.
  static constexpr std::ptrdiff_t kQueueLimit = 64 * 1024;

  line_output(server_connection& server, const line_controls& controls, std::wstring name);
  line_output(const line_output&) = delete;
  line_output& operator=(const line_output&) = delete;
  ~line_output();

  // Queues the bytes; completes when there is room for more. Call again only after that.
  ostra::future<void> write(std::vector<std::byte> bytes);

  // Completes when the device has taken all queued bytes, or they were dropped. One waiter.
  ostra::future<void> drained();

  // Discards the queue and abandons the write in flight. The caller must then purge the device's
  // output: the device leaves an aborted write without an answer.
  void drop() { begin_batch(); }

  // Discards everything queued now or later; failure() completes.
  void close();

  // True after close() or a failed write: what is queued now is discarded. A future of write() or
  // drained() that completes for one of these reasons completes after this has become true.
  [[nodiscard]] bool is_closed() const;

  // When the device last had bytes to take; now, if it still has some.
  [[nodiscard]] std::chrono::steady_clock::time_point busy_until() const;

  // Fails with client_error when a write fails, after which nothing more is sent. One waiter.
  [[nodiscard]] const ostra::future<void>& failure() const noexcept { return failure_; }

 private:
  // The bytes from one drop() to the next.
  struct batch;

  void begin_batch();
  ostra::future<void> send_all(std::shared_ptr<batch> present);
  ostra::future<void> send(std::vector<std::byte> piece) const;
  [[nodiscard]] bool note_sent(batch& present, std::size_t size);
  void end_batch(batch& ended);
  void end(const batch* failed, std::exception_ptr reason);

  // Constant after construction.
  server_connection& server_;
  const line_controls& controls_;
  const std::wstring name_;

  ostra::promise<void> failed_;  // taken under lock_, once
  const ostra::future<void> failure_ = failed_.get_future();

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  bool closed_ = false;
  std::shared_ptr<batch> batch_;
  std::chrono::steady_clock::time_point last_taken_;  // the device took bytes
  std::vector<ostra::future<void>> sending_;          // one coroutine per batch
};

}  // namespace tarnwheel::client
