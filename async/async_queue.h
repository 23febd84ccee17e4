// A queue with any number of producing threads and one consuming coroutine.
#pragma once

#include <coroutine>
#include <list>
#include <mutex>
#include <optional>
#include <utility>

#include "async/resumption.h"
#include "async/srw_lock.h"

namespace ostra {

// Values are taken in the order in which they were pushed. A push, or the end of the queue, takes
// out the waiting consumer under lock_ and resumes it after releasing the lock; a pushed value is
// in the queue by then. So no value is lost in between, and no consumer is resumed twice.
//
// The consumer keeps the queue alive while it waits and may destroy it as soon as it is resumed;
// neither push() nor the end of the queue touches it after that. By default the consumer is resumed
// inside the call that wakes it; with pool_resumption, on a pool thread.
template <class T, class Resumption = inline_resumption>
class async_queue {
 public:
  async_queue() = default;
  async_queue(const async_queue&) = delete;
  async_queue& operator=(const async_queue&) = delete;

  // Any thread. Returns false, destroying the value, when the queue has ended. Throws
  // std::bad_alloc before anything changes.
  bool push(T value) {
    std::list<T> added;
    added.push_back(std::move(value));
    std::coroutine_handle<> consumer;
    {
      const std::lock_guard guard(lock_);
      if (closed_)
        return false;
      values_.splice(values_.end(), added);
      consumer = std::exchange(consumer_, nullptr);
    }
    if (consumer)
      resumption_.resume(consumer);
    return true;
  }

  // co_await yields the oldest value, or nothing when the queue is empty and has ended. One
  // consumer at a time.
  [[nodiscard]] auto pop() noexcept { return awaiter(*this); }

  // The oldest value, or nothing when the queue is empty. Called by the consumer only.
  [[nodiscard]] std::optional<T> try_pop() {
    std::list<T> taken;
    {
      const std::lock_guard guard(lock_);
      if (values_.empty())
        return std::nullopt;
      taken.splice(taken.begin(), values_, values_.begin());
    }
    return std::move(taken.front());
  }

  // Both end the queue, which refuses later values. Any thread, any number of times. After finish()
  // the values still queued can be taken; close() destroys them.
  void finish() noexcept { end(nullptr); }
  void close() noexcept {
    std::list<T> dropped;
    end(&dropped);
  }

 private:
  class [[nodiscard]] awaiter {
   public:
    explicit awaiter(async_queue& queue) noexcept : queue_(queue) {}
    [[nodiscard]] bool await_ready() const noexcept { return false; }

    [[nodiscard]] bool await_suspend(std::coroutine_handle<> consumer) const noexcept {
      const std::lock_guard guard(queue_.lock_);
      if (queue_.closed_ || !queue_.values_.empty())
        return false;
      queue_.consumer_ = consumer;
      return true;
    }

    [[nodiscard]] std::optional<T> await_resume() const { return queue_.try_pop(); }

   private:
    async_queue& queue_;
  };

  void end(std::list<T>* dropped) noexcept {
    std::coroutine_handle<> consumer;
    {
      const std::lock_guard guard(lock_);
      closed_ = true;
      if (dropped != nullptr)
        dropped->swap(values_);
      consumer = std::exchange(consumer_, nullptr);
    }
    if (consumer)
      resumption_.resume(consumer);
  }

  Resumption resumption_;

  // Guarded by lock_.
  srw_lock lock_;
  std::list<T> values_;
  std::coroutine_handle<> consumer_;
  bool closed_ = false;
};

}  // namespace ostra
