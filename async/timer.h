// One-shot timers that a coroutine can await and any thread can cancel.
#pragma once

#include <coroutine>

#include "async/cancellation.h"
#include "async/handle_wait.h"
#include "async/resumption.h"
#include "async/srw_lock.h"

namespace ostra {

struct threadpool_timer_traits {
  using pointer = PTP_TIMER;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer timer) noexcept { ::CloseThreadpoolTimer(timer); }
};
using unique_threadpool_timer = Tamrin::unique_resource<threadpool_timer_traits>;

// Either the firing or a cancel takes out the waiter under lock_ and resumes it after releasing the
// lock, never both. The timer is also armed under lock_, exactly while a waiter is stored: a cancel
// cannot come between the two and leave the timer armed without a waiter. The side that resumes the
// waiter does not touch the timer afterwards, since the waiter may destroy it. A firing gives up
// its claim on the timer before it resumes the waiter, so a cancel that waits for the firing never
// waits for what the waiter does next.
//
// A cancel takes the waiter out first, and waits for firings before it resumes the waiter, which
// cannot wait again until then. So a late firing does not end a later wait. Nor does the cancel
// drop the firing of a later wait or take its waiter, which would continue as if its time had
// passed.
//
// The timer must outlive every wait and every call of cancel(). One waiter at a time.
class async_timer {
 public:
  async_timer();  // throws hresult_error
  async_timer(const async_timer&) = delete;
  async_timer& operator=(const async_timer&) = delete;

  // co_await resumes on a pool thread after `duration`. It throws timer_cancelled when the timer
  // was cancelled during this wait, or since the previous one.
  [[nodiscard]] auto wait(ticks duration) noexcept { return awaiter(*this, duration); }

  // Ends the current wait, or the next one if there is no waiter. Any thread.
  void cancel() noexcept;

 private:
  class [[nodiscard]] awaiter {
   public:
    awaiter(async_timer& timer, ticks duration) noexcept : timer_(timer), duration_(duration) {}
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    [[nodiscard]] bool await_suspend(std::coroutine_handle<> waiter) const noexcept {
      return timer_.start(waiter, duration_);
    }
    void await_resume() const { timer_.finish(); }

   private:
    async_timer& timer_;
    const ticks duration_;
  };

  [[nodiscard]] bool start(std::coroutine_handle<> waiter, ticks duration) noexcept;
  void finish();
  [[nodiscard]] std::coroutine_handle<> take_waiter() noexcept;
  static void CALLBACK on_fired(PTP_CALLBACK_INSTANCE instance, void* context,
                                PTP_TIMER timer) noexcept;

  pool_resumption resumption_;  // for a cancelled waiter: the canceller may hold what it needs

  // Guarded by lock_.
  srw_lock lock_;
  std::coroutine_handle<> waiter_;
  bool cancelled_ = false;

  unique_threadpool_timer timer_;
};

// A timer that a token cancels. The constructor throws operation_cancelled when the token is
// already cancelled. The destructor ends the subscription first, so the token is not cancelling the
// timer when the timer is destroyed.
class auto_cancel_timer : public async_timer {
 public:
  explicit auto_cancel_timer(const cancellation_token& token) : subscription_(token, stop{this}) {}

 private:
  struct stop {
    async_timer* timer;
    void operator()() const noexcept { timer->cancel(); }
  };

  cancellation_subscription<stop> subscription_;
};

}  // namespace ostra
