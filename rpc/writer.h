// The sending side of a connection: whole messages, one after another.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>

#include "async/future.h"
#include "async/srw_lock.h"
#include "rpc/itransport.h"

namespace tether {

// Sends messages in the order of their Send calls with at most one write outstanding. Whoever finds
// no write going on starts the pump, a coroutine that writes until the queue is empty; it keeps
// this object alive. A write that fails ends the sending for good and cancels the transport, which
// ends the connection's reading too.
//
// What waits for a peer that does not read is bounded by the connection: it takes no more requests
// while has_room() is false.
class Writer : public std::enable_shared_from_this<Writer> {
 public:
  // More than this many bytes in the queue is no room.
  static constexpr std::size_t kQueueLimit = 16 * 1024 * 1024;

  explicit Writer(std::shared_ptr<ITransport> transport) : transport_(std::move(transport)) {}

  // Any thread. Takes the message over; drops it when the sending has ended. Throws std::bad_alloc.
  void Send(std::shared_ptr<message_t> message);

  [[nodiscard]] bool has_room() const noexcept;

  // Completes when there is room again or the sending has ended. One waiter at a time.
  [[nodiscard]] ostra::future<void> room();

  // Ends the sending: drops the queue. A write that is going on ends by itself or by the
  // transport's cancellation.
  void Close() noexcept;

 private:
  ostra::future<void> pump(std::shared_ptr<ITransport> transport);
  [[nodiscard]] std::shared_ptr<message_t> next() noexcept;
  void written(const message_t& message) noexcept;

  // Guarded by lock_. The message that is being written counts as queued.
  mutable ostra::srw_lock lock_;
  std::shared_ptr<ITransport> transport_;  // null once the sending has ended
  std::deque<std::shared_ptr<message_t>> queue_;
  std::size_t queued_bytes_ = 0;
  bool pumping_ = false;
  std::optional<ostra::promise<void>> waiter_;
};

}  // namespace tether
