// Futures: the results of coroutines, and of promises completed explicitly.
#pragma once

#include <coroutine>
#include <memory>
#include <utility>

#include "async/errors.h"
#include "async/future_state.h"

namespace ostra::details {

template <class T>
class coroutine_promise;

// A coroutine that returns a future starts at once on the caller's thread and runs there until it
// first suspends, then on whichever pool thread delivers what it awaits. Its future need not be
// kept: a coroutine runs to its end by itself. Its frame (locals, then parameters) is then
// destroyed, and only after that does the future complete and the waiter run, on the completing
// thread. An exception that leaves the coroutine is stored and rethrown when the future is awaited.
//
// Copies refer to the same state. The first await or get() moves the value out, so only one holder
// may take it. At most one waiter at a time. A default-constructed future has no state and may only
// be assigned to or tested with valid().
template <class T>
class [[nodiscard]] future {
 public:
  using promise_type = coroutine_promise<T>;

  future() noexcept = default;
  explicit future(std::shared_ptr<promise_type_<T>> state) noexcept : state_(std::move(state)) {}

  [[nodiscard]] bool valid() const noexcept { return state_ != nullptr; }
  [[nodiscard]] bool is_complete() const noexcept { return state_->is_complete(); }

  // Both block the calling thread until the future is complete; get() then returns the value or
  // throws.
  void wait() const noexcept { state_->wait(); }
  T get() const {
    wait();
    return state_->take();
  }

  auto operator co_await() const noexcept { return awaiter(state_); }

 private:
  // Keeps the state alive while the waiter is suspended.
  class awaiter {
   public:
    explicit awaiter(std::shared_ptr<promise_type_<T>> state) noexcept : state_(std::move(state)) {}

    [[nodiscard]] bool await_ready() const noexcept { return state_->is_complete(); }

    [[nodiscard]] bool await_suspend(std::coroutine_handle<> waiter) const noexcept {
      // As soon as the continuation is set, the waiter may run elsewhere and destroy this object;
      // the local copy keeps the state alive until the call returns.
      const auto state = state_;
      return state->set_continuation(resume_coroutine(waiter));
    }

    T await_resume() const { return state_->take(); }

   private:
    std::shared_ptr<promise_type_<T>> state_;
  };

  std::shared_ptr<promise_type_<T>> state_;
};

// Runs at the end of a coroutine: destroys its frame, so that no local or parameter is alive when
// the waiter runs, and then completes the state.
struct final_awaiter {
  [[nodiscard]] bool await_ready() const noexcept { return false; }

  template <class Promise>
  void await_suspend(std::coroutine_handle<Promise> frame) const noexcept {
    const auto state = frame.promise().take_state();
    frame.destroy();  // destroys this awaiter too
    state->complete();
  }

  void await_resume() const noexcept {}
};

template <class T>
class coroutine_promise_base {
 public:
  future<T> get_return_object() noexcept { return future<T>(state_); }
  std::suspend_never initial_suspend() const noexcept { return {}; }
  final_awaiter final_suspend() const noexcept { return {}; }
  void unhandled_exception() noexcept { state_->store_exception(std::current_exception()); }

  std::shared_ptr<promise_type_<T>> take_state() noexcept { return std::move(state_); }

 protected:
  std::shared_ptr<promise_type_<T>> state_ = std::make_shared<promise_type_<T>>();
};

template <class T>
class coroutine_promise : public coroutine_promise_base<T> {
 public:
  template <class U>
  void return_value(U&& value) {
    this->state_->store_value(std::forward<U>(value));
  }
};

template <>
class coroutine_promise<void> : public coroutine_promise_base<void> {
 public:
  void return_void() const noexcept {}
};

// The producing side of a future that no coroutine computes. Used by one thread at a time. It is
// completed at most once, and the waiter runs inside the completing call. A promise destroyed
// before that completes its future with operation_cancelled.
template <class T>
class promise {
 public:
  promise() : state_(std::make_shared<promise_type_<T>>()) {}
  promise(promise&&) noexcept = default;
  promise& operator=(promise&& other) noexcept {
    promise(std::move(other)).swap(*this);
    return *this;
  }
  ~promise() { set_exception(std::make_exception_ptr(operation_cancelled())); }

  void swap(promise& other) noexcept { state_.swap(other.state_); }

  [[nodiscard]] future<T> get_future() const noexcept { return future<T>(state_); }

  template <class... Value>
  void set_value(Value&&... value) {
    if constexpr (sizeof...(Value) != 0)
      state_->store_value(std::forward<Value>(value)...);
    complete();
  }

  void set_exception(std::exception_ptr failure) noexcept {
    if (!state_)
      return;
    state_->store_exception(std::move(failure));
    complete();
  }

 private:
  void complete() noexcept {
    const auto state = std::move(state_);
    state->complete();
  }

  std::shared_ptr<promise_type_<T>> state_;
};

}  // namespace ostra::details

namespace ostra {
using details::future;
using details::promise;
}  // namespace ostra
