// A limit for a call that may never be answered.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "async/errors.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "async/timer.h"

namespace tarnwheel::client {
namespace details {

// What the call and its limit share. Whichever of them takes the promise settles it.
template <class T>
class limited_call {
 public:
  [[nodiscard]] ostra::future<T> result() const { return promise_->get_future(); }

  [[nodiscard]] std::optional<ostra::promise<T>> take() {
    const std::lock_guard guard(lock_);
    return std::exchange(promise_, std::nullopt);
  }

  ostra::async_timer timer;

 private:
  ostra::srw_lock lock_;
  std::optional<ostra::promise<T>> promise_{std::in_place};  // guarded by lock_
};

template <class T>
ostra::future<void> end_at_limit(std::shared_ptr<limited_call<T>> shared,
                                 std::chrono::milliseconds limit) {
  try {
    auto wait = shared->timer.wait(limit);
    co_await wait;
  } catch (const ostra::timer_cancelled&) {
    co_return;  // the call has ended first
  }
  if (auto promise = shared->take()) {
    const auto code = ostra::details::to_hresult(ERROR_TIMEOUT);
    promise->set_exception(std::make_exception_ptr(ostra::hresult_error(code)));
  }
}

template <class T>
ostra::future<void> end_with_call(std::shared_ptr<limited_call<T>> shared, ostra::future<T> call) {
  std::optional<T> value;
  std::exception_ptr failure;
  try {
    value = co_await call;
  } catch (...) {
    failure = std::current_exception();  // is its waiter's to handle
  }
  shared->timer.cancel();
  auto promise = shared->take();
  if (!promise)
    co_return;
  if (failure)
    promise->set_exception(failure);
  else
    promise->set_value(std::move(*value));
}

}  // namespace details

// Completes with the call, or fails with hresult_error 0x800705B4 when `limit` passes first. The
// call itself goes on then, and nobody hears of its end. A limit of zero is no limit.
template <class T>
ostra::future<T> within(ostra::future<T> call, std::chrono::milliseconds limit) {
  if (limit == std::chrono::milliseconds::zero() || call.is_complete())
    return call;
  const auto shared = std::make_shared<details::limited_call<T>>();
  auto result = shared->result();
  static_cast<void>(details::end_at_limit(shared, limit));
  static_cast<void>(details::end_with_call(shared, std::move(call)));
  return result;
}

}  // namespace tarnwheel::client
