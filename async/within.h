// A time limit for a call that may never complete.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "async/errors.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "async/timer.h"

namespace ostra {
namespace details {

// Shared by the call and its time limit. Whichever takes the promise first settles it.
template <class T>
class limited_call {
 public:
  [[nodiscard]] future<T> result() const { return promise_->get_future(); }

  [[nodiscard]] std::optional<promise<T>> take() {
    const std::lock_guard guard(lock_);
    return std::exchange(promise_, std::nullopt);
  }

  async_timer timer;

 private:
  srw_lock lock_;
  std::optional<promise<T>> promise_{std::in_place};  // guarded by lock_
};

template <class T>
future<void> end_at_limit(std::shared_ptr<limited_call<T>> shared,
                          std::chrono::milliseconds limit) {
  try {
    auto wait = shared->timer.wait(limit);
    co_await wait;
  } catch (const timer_cancelled&) {
    co_return;  // the call completed first
  }
  if (auto promise = shared->take())
    promise->set_exception(std::make_exception_ptr(hresult_error(to_hresult(ERROR_TIMEOUT))));
}

template <class T>
future<void> end_with_call(std::shared_ptr<limited_call<T>> shared, future<T> call) {
  constexpr bool has_value = !std::is_void_v<T>;
  std::optional<std::conditional_t<has_value, T, std::monostate>> value;
  std::exception_ptr failure;
  try {
    if constexpr (has_value)
      value = co_await call;
    else
      co_await call;
  } catch (...) {
    failure = std::current_exception();  // rethrown to the waiter
  }
  shared->timer.cancel();
  auto promise = shared->take();
  if (!promise)
    co_return;
  if (failure)
    promise->set_exception(failure);
  else if constexpr (has_value)
    promise->set_value(std::move(*value));
  else
    promise->set_value();
}

}  // namespace details

// Completes with the call's outcome, or fails with hresult_error 0x800705B4 (ERROR_TIMEOUT) when
// `limit` passes first. The limit does not cancel the call, which continues with its result
// discarded: whatever the call uses must outlive it or be owned by it. A limit of zero means no
// limit.
template <class T>
future<T> within(future<T> call, std::chrono::milliseconds limit) {
  if (limit == std::chrono::milliseconds::zero() || call.is_complete())
    return call;
  const auto shared = std::make_shared<details::limited_call<T>>();
  auto result = shared->result();
  static_cast<void>(details::end_at_limit(shared, limit));
  static_cast<void>(details::end_with_call(shared, std::move(call)));
  return result;
}

}  // namespace ostra
