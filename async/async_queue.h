// A queue from any number of threads to one coroutine.
#pragma once

#include <coroutine>
#include <list>
#include <mutex>
#include <optional>
#include <utility>

#include "async/srw_lock.h"

namespace ostra {

// Values are taken in the order in which they were pushed. The consumer is taken out under lock_
// and resumed after it, by one push or by close(), and finds the value in the queue: so no value is
// lost between the two, and no consumer is resumed twice.
//
// The consumer keeps the queue alive while it waits. It may destroy it as soon as it is resumed;
// neither push() nor close() touches the queue after that.
template <class T>
class async_queue {
 public:
  async_queue() noexcept = default;
  async_queue(const async_queue&) = delete;
  async_queue& operator=(const async_queue&) = delete;

  // Any thread. False, and the value is destroyed, when the queue is closed. A consumer that waits
  // runs inside this call until it next suspends. Throws std::bad_alloc, before anything changes.
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
      consumer.resume();
    return true;
  }

  // co_await gives the oldest value, or nothing once the queue is closed. One consumer at a time.
  [[nodiscard]] auto pop() noexcept { return awaiter(*this); }

  // Any thread, any number of times. Destroys the values that nobody has taken, and refuses what
  // comes later. A consumer that waits runs inside this call.
  void close() noexcept {
    std::list<T> dropped;
    std::coroutine_handle<> consumer;
    {
      const std::lock_guard guard(lock_);
      closed_ = true;
      dropped.swap(values_);
      consumer = std::exchange(consumer_, nullptr);
    }
    if (consumer)
      consumer.resume();
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

    [[nodiscard]] std::optional<T> await_resume() const {
      std::list<T> taken;
      {
        const std::lock_guard guard(queue_.lock_);
        if (queue_.values_.empty())
          return std::nullopt;
        taken.splice(taken.begin(), queue_.values_, queue_.values_.begin());
      }
      return std::move(taken.front());
    }

   private:
    async_queue& queue_;
  };

  // Guarded by lock_.
  srw_lock lock_;
  std::list<T> values_;
  std::coroutine_handle<> consumer_;
  bool closed_ = false;
};

}  // namespace ostra
