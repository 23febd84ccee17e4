#include "rpc/writer.h"

#include <mutex>
#include <utility>

namespace tether {

void Writer::Send(std::shared_ptr<message_t> message) {
  std::shared_ptr<ITransport> transport;
  {
    const std::lock_guard guard(lock_);
    if (!transport_)
      return;
    queued_bytes_ += message->bytes().size();
    queue_.push_back(std::move(message));
    if (std::exchange(pumping_, true))
      return;
    transport = transport_;
  }
  static_cast<void>(pump(std::move(transport)));
}

bool Writer::has_room() const noexcept {
  const std::lock_guard guard(lock_);
  return !transport_ || queued_bytes_ <= kQueueLimit;
}

ostra::future<void> Writer::room() {
  ostra::promise<void> ready;
  auto result = ready.get_future();
  {
    const std::lock_guard guard(lock_);
    if (transport_ && queued_bytes_ > kQueueLimit) {
      waiter_ = std::move(ready);
      return result;
    }
  }
  ready.set_value();
  return result;
}

void Writer::Close() noexcept {
  std::shared_ptr<ITransport> transport;
  std::optional<ostra::promise<void>> waiter;
  {
    const std::lock_guard guard(lock_);
    transport_.swap(transport);
    queue_.clear();  // a new deque to swap with would take memory
    waiter = std::exchange(waiter_, std::nullopt);
  }
  if (waiter)
    waiter->set_value();
}

ostra::future<void> Writer::pump(std::shared_ptr<ITransport> transport) {
  const auto self = shared_from_this();
  try {
    while (const auto message = next()) {
      auto write = transport->WriteMessage(message);
      co_await write;
      written(*message);
    }
  } catch (...) {
    // The peer is gone or the connection was cancelled: whoever reads from it hears of that.
    Close();
    transport->Cancel();
  }
}

std::shared_ptr<message_t> Writer::next() noexcept {
  const std::lock_guard guard(lock_);
  if (queue_.empty()) {
    pumping_ = false;
    return nullptr;
  }
  auto message = std::move(queue_.front());
  queue_.pop_front();
  return message;
}

void Writer::written(const message_t& message) noexcept {
  std::optional<ostra::promise<void>> waiter;
  {
    const std::lock_guard guard(lock_);
    queued_bytes_ -= message.bytes().size();
    if (queued_bytes_ <= kQueueLimit)
      waiter = std::exchange(waiter_, std::nullopt);
  }
  if (waiter)
    waiter->set_value();
}

}  // namespace tether
