// Futures: the result of every coroutine, and of every promise that is completed by hand.
#pragma once

#include <coroutine>
#include <memory>
#include <utility>

#include "async/errors.h"
#include "async/future_state.h"

namespace ostra::details {

template <class T>
class coroutine_promise;

// A coroutine that returns a future starts at once, on the caller's thread, runs there until its
// first suspension and afterwards on whichever pool thread delivers what it waits for. Nobody needs
// to keep its future: a coroutine runs to its end by itself, its frame (locals, then parameters) is
// destroyed there, and only then does the future complete and its waiter run, on the completing
// thread. What a coroutine throws is stored and thrown again to whoever awaits it.
//
// Copies refer to one state; the value is moved out to the first who awaits or gets it, so one
// holder does. At most one waiter at a time. A default-constructed future refers to nothing and may
// only be assigned to or tested with valid().
template <class T>
class [[nodiscard]] future {
 public:
  using promise_type = coroutine_promise<T>;

  future() noexcept = default;
  explicit future(std::shared_ptr<promise_type_<T>> state) noexcept : state_(std::move(state)) {}

  [[nodiscard]] bool valid() const noexcept { return state_ != nullptr; }
  [[nodiscard]] bool is_complete() const noexcept { return state_->is_complete(); }

  // Block the calling thread until the future is complete; get() also gives the outcome.
  void wait() const noexcept { state_->wait(); }
  T get() const {
    wait();
    return state_->take();
  }

  auto operator co_await() const noexcept { return awaiter(state_); }

 private:
  // Keeps the state alive for as long as the waiter is suspended.
  class awaiter {
   public:
    explicit awaiter(std::shared_ptr<promise_type_<T>> state) noexcept : state_(std::move(state)) {}

    [[nodiscard]] bool await_ready() const noexcept { return state_->is_complete(); }

    [[nodiscard]] bool await_suspend(std::coroutine_handle<> waiter) const noexcept {
      // The moment the continuation is set, the waiter may run elsewhere and take this object with
      // it; the state outlives the call through the copy.
      const auto state = state_;
      return state->set_continuation(resume_coroutine(waiter));
    }

    T await_resume() const { return state_->take(); }

   private:
    std::shared_ptr<promise_type_<T>> state_;
  };

  std::shared_ptr<promise_type_<T>> state_;
};

// At the end of a coroutine: destroys its frame, so that no local and no parameter is alive when
// the waiter runs, and completes the state.
struct final_awaiter {
  [[nodiscard]] bool await_ready() const noexcept { return false; }

  template <class Promise>
  void await_suspend(std::coroutine_handle<Promise> frame) const noexcept {
    const auto state = frame.promise().take_state();
    frame.destroy();  // this awaiter is gone with it
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

// The producing side of a future that no coroutine computes. One thread at a time uses it; it is
// completed at most once, and the waiter runs inside the completing call. A promise that is
// destroyed first completes its future with operation_cancelled.
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
