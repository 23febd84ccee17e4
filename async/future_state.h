// The shared state behind a future: how completion and the one waiter meet.
#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

#include "async/srw_lock.h"

namespace ostra::details {

// The continuation of a state: a coroutine, or whatever else waits for it, resumed on completion.
struct continuation {
  void (*resume)(void* context) noexcept = nullptr;
  void* context = nullptr;
};

[[nodiscard]] continuation resume_coroutine(std::coroutine_handle<> waiter) noexcept;

// Completion and the registration of a waiter race. Both take lock_, so exactly one side sees the
// other: a completion that comes first makes set_continuation return false and the waiter goes on
// by itself; a continuation that comes first is taken out under the lock by the completing thread
// and resumed after the lock has been released. The result is written before the status changes and
// never again, so whoever has seen the state complete reads it without the lock.
//
// Every future and the producer own the state through a shared pointer, and a waiter that is
// suspended keeps a future: no continuation can be left behind in a state that nobody refers to.
class future_state {
 public:
  future_state() noexcept = default;
  future_state(const future_state&) = delete;
  future_state& operator=(const future_state&) = delete;

  [[nodiscard]] bool is_complete() const noexcept;

  // Returns false, and keeps nothing, when the state is complete already. A state has at most one
  // waiter at a time; a second one is a fault of the program and terminates it.
  [[nodiscard]] bool set_continuation(continuation next) noexcept;

  // Blocks until the state is complete. Not for a pool thread that the awaited work itself needs.
  void wait() noexcept;

  // The producer's side: store the outcome, then complete, each once and in this order. The caller
  // of complete() holds a reference of its own, since the resumed waiter may drop all others.
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

  // Only of a complete state. Moves the value out, or throws the stored exception.
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
