// The queue of bytes to a remote serial line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/server_connection.h"

namespace tarnwheel::client {

// A bounded queue of bytes, and a coroutine that sends them in order, one write at a time. A write
// has a limit that its size and the baud rate give, or none when flow control may hold it up.
//
// Any thread. Held by its owner and by each of its writes, one of which may end as late as the
// connection; `server`, whose port is open, must outlive them all, which it does by ending them.
class line_output : public std::enable_shared_from_this<line_output> {
 public:
  // More than this many bytes in the queue is no room.
  static constexpr std::size_t kQueueLimit = 64 * 1024;

  line_output(server_connection& server, std::wstring name);

  void set_pace(std::uint32_t baud_rate, bool may_be_held);

  // Queues the bytes; completes when there is room for more. The next call comes after that.
  ostra::future<void> write(std::vector<std::byte> bytes);

  // Completes when all that was queued has been taken by the device, or dropped. One waiter.
  ostra::future<void> drained();

  // Forgets the queue and the write that is under way, which the device is to be told to abort: it
  // would leave that one without an answer.
  void drop();

  // Drops everything from now on; failure() completes.
  void close();

  // Fails with client_error when a write does; nothing is sent any more then. One waiter.
  [[nodiscard]] const ostra::future<void>& failure() const noexcept { return failure_; }

 private:
  using promise = ostra::promise<void>;

  static ostra::future<void> pump(std::shared_ptr<line_output> self, unsigned turn);
  ostra::future<HRESULT> send(std::vector<std::byte> piece) const;
  [[nodiscard]] std::vector<std::byte> next(unsigned turn);
  void sent(unsigned turn);
  void fail(unsigned turn, std::exception_ptr reason);
  void end(std::exception_ptr reason);

  // Constant after construction.
  server_connection& server_;
  const std::wstring name_;

  promise failed_;  // taken under lock_, once
  const ostra::future<void> failure_ = failed_.get_future();

  // Guarded by lock_. A turn is what one pump sends; drop() begins the next one.
  mutable ostra::srw_lock lock_;
  std::uint32_t baud_rate_ = 0;  // 0 until it is set
  bool may_be_held_ = true;
  bool closed_ = false;
  unsigned turn_ = 0;
  bool pumping_ = false;
  std::vector<std::byte> queue_;
  std::optional<promise> room_;
  std::optional<promise> drained_;
};

}  // namespace tarnwheel::client
