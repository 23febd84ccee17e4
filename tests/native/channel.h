// The bytes between the two ends of a pipe.
#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "kernel_objects.h"

namespace stand_in {

// One direction of a connection: bytes in their order, up to `capacity` of them waiting.
class channel {
 public:
  explicit channel(std::size_t capacity) : capacity_(capacity) {}

  void read(request_ptr reader) {
    const std::lock_guard guard(lock_);
    if (size_ == 0 && writer_gone_)
      return reader->complete(ERROR_BROKEN_PIPE, 0);
    readers_.push_back(std::move(reader));
    move_bytes();
  }

  void write(request_ptr writer) {
    const std::lock_guard guard(lock_);
    if (reader_gone_)
      return writer->complete(ERROR_NO_DATA, 0);
    writers_.push_back(std::move(writer));
    move_bytes();
  }

  bool cancel(const OVERLAPPED* overlapped) {
    const std::lock_guard guard(lock_);
    return fail_from(readers_, overlapped) || fail_from(writers_, overlapped);
  }

  // An end is closed: its own calls are aborted, and the other end hears of it when it has read
  // what is there.
  void end_writing() {
    const std::lock_guard guard(lock_);
    writer_gone_ = true;
    fail(writers_, ERROR_OPERATION_ABORTED);
    if (size_ == 0)
      fail(readers_, ERROR_BROKEN_PIPE);
  }

  void end_reading() {
    const std::lock_guard guard(lock_);
    reader_gone_ = true;
    chunks_.clear();
    size_ = 0;
    fail(readers_, ERROR_OPERATION_ABORTED);
    fail(writers_, ERROR_BROKEN_PIPE);
    emptied_.notify_all();
  }

  void wait_until_read() {
    std::unique_lock guard(lock_);
    emptied_.wait(guard, [this] { return size_ == 0; });
  }

 private:
  using requests = std::deque<request_ptr>;

  static void fail(requests& queue, DWORD error) {
    for (const auto& call : std::exchange(queue, {}))
      call->complete(error, call->moved);
  }

  static bool fail_from(requests& queue, const OVERLAPPED* overlapped) {
    const auto found = std::ranges::find(queue, overlapped,
                                         [](const request_ptr& call) { return call->overlapped; });
    if (found == queue.end())
      return false;
    const auto call = *found;
    queue.erase(found);
    call->complete(ERROR_OPERATION_ABORTED, 0);
    return true;
  }

  void move_bytes() {
    do {
      while (!writers_.empty() && size_ < capacity_)
        accept(*writers_.front());
      while (!readers_.empty() && size_ != 0)
        deliver(*readers_.front());
    } while (!writers_.empty() && size_ < capacity_);
    if (size_ == 0)
      emptied_.notify_all();
  }

  void accept(request& writer) {
    const auto* const first = writer.data + writer.moved;
    const auto count = std::min<std::size_t>(writer.size - writer.moved, capacity_ - size_);
    chunks_.emplace_back(first, first + count);
    size_ += count;
    writer.moved += static_cast<DWORD>(count);
    if (writer.moved == writer.size) {
      const auto done = std::move(writers_.front());
      writers_.pop_front();
      done->complete(ERROR_SUCCESS, done->size);
    }
  }

  void deliver(request& reader) {
    while (reader.moved < reader.size && size_ != 0) {
      auto& chunk = chunks_.front();
      const auto count = std::min<std::size_t>(reader.size - reader.moved, chunk.size() - read_);
      std::memcpy(reader.data + reader.moved, chunk.data() + read_, count);
      reader.moved += static_cast<DWORD>(count);
      size_ -= count;
      read_ += count;
      if (read_ == chunk.size()) {
        chunks_.pop_front();
        read_ = 0;
      }
    }
    const auto done = std::move(readers_.front());
    readers_.pop_front();
    done->complete(ERROR_SUCCESS, done->moved);
  }

  const std::size_t capacity_;

  std::mutex lock_;
  std::condition_variable emptied_;

  // Guarded by lock_.
  std::deque<std::vector<std::byte>> chunks_;
  std::size_t read_ = 0;  // of the first chunk
  std::size_t size_ = 0;  // not read yet
  requests readers_;
  requests writers_;
  bool reader_gone_ = false;
  bool writer_gone_ = false;
};

}  // namespace stand_in
