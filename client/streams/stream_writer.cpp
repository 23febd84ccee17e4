#include "client/streams/stream_writer.h"

#include <mutex>
#include <utility>

#include "async/errors.h"

namespace tarnwheel::client {

ostra::future<void> stream_writer::send(std::vector<std::byte> bytes) {
  piece next{std::move(bytes), {}};
  auto done = next.done.get_future();
  bool starts = false;
  {
    const std::lock_guard guard(lock_);
    if (!closed_) {
      queue_.push_back(std::move(next));
      starts = !std::exchange(pumping_, true);
      if (!starts)
        return done;
    }
  }
  if (starts)
    static_cast<void>(pump());
  else
    next.done.set_value();
  return done;
}

ostra::future<void> stream_writer::pump() {
  const auto self = shared_from_this();
  piece present;
  try {
    while (next(present)) {
      auto written = stream_->write(present.bytes);
      co_await written;
      present.done.set_value();
    }
    co_return;
  } catch (const ostra::hresult_error&) {
    // The other end has gone, or the stream was cancelled: whoever reads from it hears of that.
  }
  stream_->cancel();
  close();
  present.done.set_value();
}

bool stream_writer::next(piece& taken) {
  const std::lock_guard guard(lock_);
  if (queue_.empty()) {
    pumping_ = false;
    return false;
  }
  taken = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

void stream_writer::close() {
  std::deque<piece> dropped;
  {
    const std::lock_guard guard(lock_);
    closed_ = true;
    dropped.swap(queue_);
  }
  for (piece& one : dropped)
    one.done.set_value();
}

}  // namespace tarnwheel::client
