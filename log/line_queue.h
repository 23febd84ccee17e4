// A queue of lines to be written, bounded in memory.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>

#include "async/async_queue.h"
#include "log/log_entry.h"

namespace logging {

// Any number of threads push, and one coroutine pops. It resumes on a pool thread, so push() never
// runs it.
//
// Lines that do not fit are left out and counted, and a gap is queued in their place. Once one line
// has been left out, so are all others until the gap has been popped. Gaps are thus few and long;
// the writer, which has lines to write all the while, is no slower for it.
class line_queue {
 public:
  // The most bytes that the queued lines may occupy, text and structs.
  static constexpr std::size_t kMaxBytes = 4 * 1024 * 1024;

  // Throws std::bad_alloc; the line is then lost.
  void push(log_entry line) {
    const std::size_t size = size_of(line);
    const std::lock_guard guard(lock_);
    if (left_out_ == 0 && size <= kMaxBytes - bytes_) {
      if (lines_.push(std::move(line)))
        bytes_ += size;
      return;
    }
    if (left_out_ == 0)
      static_cast<void>(lines_.push({}));  // the gap
    ++left_out_;
  }

  // As in async_queue. A gap has no text.
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
