// Awaits a kernel object on the thread pool.
#pragma once

#include <chrono>
#include <coroutine>
#include <cstdint>
#include <ratio>

#include "platform/unique_resource.h"

namespace ostra {

// The thread pool's unit of time: 100 nanoseconds.
using ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

namespace details {
// A due time relative to now, in the form that the thread pool takes.
[[nodiscard]] FILETIME relative_time(ticks duration) noexcept;
}  // namespace details

struct threadpool_wait_traits {
  using pointer = PTP_WAIT;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer wait) noexcept { ::CloseThreadpoolWait(wait); }
};
using unique_threadpool_wait = Tamrin::unique_resource<threadpool_wait_traits>;

// co_await yields true when the handle was signalled, false when the timeout passed first. The
// caller keeps ownership of the handle, which must stay open until then. One wait per object; it
// cannot be cancelled. The constructor throws hresult_error.
class [[nodiscard]] handle_wait {
 public:
  // A timeout of zero means no limit.
  explicit handle_wait(HANDLE handle, ticks timeout = ticks::zero());
  handle_wait(const handle_wait&) = delete;
  handle_wait& operator=(const handle_wait&) = delete;

  [[nodiscard]] bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> waiter) noexcept;
  bool await_resume() const noexcept { return signalled_; }

 private:
  static void CALLBACK on_wait_over(PTP_CALLBACK_INSTANCE instance, void* context, PTP_WAIT wait,
                                    TP_WAIT_RESULT result) noexcept;

  const HANDLE handle_;
  const ticks timeout_;
  std::coroutine_handle<> waiter_;
  bool signalled_ = false;
  unique_threadpool_wait wait_;
};

}  // namespace ostra
