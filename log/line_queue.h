// Lines that wait to be written, in a bounded amount of memory.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>

#include "async/async_queue.h"
#include "log/log_entry.h"

namespace logging {

// From any number of threads to one coroutine, which goes on on a thread of the pool: whoever logs
// is not held up.
//
// Lines that the writer cannot keep up with are left out, and counted: a gap, which comes out of
// the queue in their place. Once one line has been left out, so are all others until the gap has
// been taken, so that gaps are few and long; the writer is busy all the while and no slower for it.
class line_queue {
 public:
  // The lines that wait occupy at most this many bytes, text and structs.
  static constexpr std::size_t kMostBytes = 4 * 1024 * 1024;

  // Throws std::bad_alloc; then the line is lost.
  void push(log_entry line) {
    const std::size_t size = size_of(line);
    const std::lock_guard guard(lock_);
    if (left_out_ == 0 && size <= kMostBytes - bytes_) {
      if (lines_.push(std::move(line)))
        bytes_ += size;
      return;
    }
    if (left_out_ == 0)
      static_cast<void>(lines_.push({}));  // the gap
    ++left_out_;
  }

  // As those of async_queue. A gap has no text.
  [[nodiscard]] auto pop() noexcept { return awaiter(*this); }
  [[nodiscard]] std::optional<log_entry> try_pop() { return counted(lines_.try_pop()); }
  void finish() noexcept { lines_.finish(); }
  void close() noexcept { lines_.close(); }

 private:
  using queue = ostra::async_queue<log_entry, ostra::pool_resumption>;

  class [[nodiscard]] awaiter {
   public:
    explicit awaiter(line_queue& lines) noexcept : lines_(lines), pop_(lines.lines_.pop()) {}
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    [[nodiscard]] bool await_suspend(std::coroutine_handle<> writer) const noexcept {
      return pop_.await_suspend(writer);
    }
    [[nodiscard]] std::optional<log_entry> await_resume() const { return lines_.try_pop(); }

   private:
    line_queue& lines_;
    decltype(std::declval<queue&>().pop()) pop_;
  };

  static std::size_t size_of(const log_entry& line) noexcept {
    return sizeof line + line.text.size() * sizeof(wchar_t);
  }

  std::optional<log_entry> counted(std::optional<log_entry> taken) {
    const std::lock_guard guard(lock_);
    if (taken && taken->text.empty())
      taken->left_out = std::exchange(left_out_, 0);
    else if (taken)
      bytes_ -= size_of(*taken);
    return taken;
  }

  queue lines_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::size_t bytes_ = 0;
  std::size_t left_out_ = 0;  // since the gap was pushed
};

}  // namespace logging
