// The shared state of a future, through which its completion and its single waiter synchronise.
#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

#include "async/srw_lock.h"

namespace ostra::details {

// Resumes the waiter of a state, a coroutine or other, on completion.
struct continuation {
  void (*resume)(void* context) noexcept = nullptr;
  void* context = nullptr;
};

[[nodiscard]] continuation resume_coroutine(std::coroutine_handle<> waiter) noexcept;

// Completion races with the registration of a waiter. Both take lock_, so exactly one side sees the
// other. If the completion comes first, set_continuation() returns false and the waiter continues
// by itself. If the continuation comes first, the completing thread takes it out under the lock and
// resumes it after releasing the lock. The result is written before the status changes and never
// again, so a thread that has seen the state complete reads the result without the lock.
//
// Every future and the producer own the state through a shared pointer, and a suspended waiter
// holds a future, so no continuation can be left behind in a state without owners.
class future_state {
 public:
  future_state() noexcept = default;
  future_state(const future_state&) = delete;
  future_state& operator=(const future_state&) = delete;

  [[nodiscard]] bool is_complete() const noexcept;

  // Returns false, and stores nothing, when the state is already complete. A state has at most one
  // waiter at a time; a second one is a programming error and terminates the process.
  [[nodiscard]] bool set_continuation(continuation next) noexcept;

  // Blocks until the state is complete. Must not block a pool thread that the awaited work itself
  // needs.
  void wait() noexcept;

  // The producer stores the outcome, then completes, each once and in this order. The caller of
  // complete() holds its own reference, since the resumed waiter may drop all others.
  void store_exception(std::exception_ptr failure) noexcept { exception_ = std::move(failure); }
  void complete() noexcept;

 protected:
  ~future_state() = default;
  void rethrow_if_failed() const {
    if (exception_)
      std::rethrow_exception(exception_);
  }

 private:
  enum class status { pending, failed, succeeded };

  // Written by the producer before the state completes, constant afterwards.
  std::exception_ptr exception_;

  // Guarded by lock_.
  mutable srw_lock lock_;
  status status_ = status::pending;
  continuation continuation_;
};

// The state of a future<T>: adds the value.
template <class T>
class promise_type_ final : public future_state {
 public:
  template <class U>
  void store_value(U&& value) {
    value_.emplace(std::forward<U>(value));
  }

  // Only for a complete state. Moves the value out, or rethrows the stored exception.
  T take() {
    rethrow_if_failed();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class promise_type_<void> final : public future_state {
 public:
  void take() const { rethrow_if_failed(); }
};

}  // namespace ostra::details
