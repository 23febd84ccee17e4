// One-shot timers that a coroutine can wait for and anybody can cancel.
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

// The waiter is taken out under lock_ and resumed after it, by the firing or by a cancel, never by
// both. The timer is armed under lock_ too, exactly while a waiter is stored: a cancel can not fall
// between the two and leave the timer armed for nobody. Whoever resumes the waiter does not touch
// the timer afterwards, since the waiter may destroy it; a firing gives up its claim on the timer
// before it resumes, so that a cancel that waits for it never waits for what the waiter does next.
//
// A cancel takes the waiter out first, and waits for firings before it resumes it: until then the
// waiter cannot wait again, so neither does a late firing end a later wait, nor does the cancel
// drop the firing of one or take its waiter, which would go on as if its time had passed.
//
// The timer outlives every wait and every call of cancel(). One waiter at a time.
class async_timer {
 public:
  async_timer();  // throws hresult_error
  async_timer(const async_timer&) = delete;
  async_timer& operator=(const async_timer&) = delete;

  // co_await returns after `duration` on the thread pool's thread; it throws timer_cancelled when
  // the timer was cancelled during the wait, or before it and since the last wait.
  [[nodiscard]] auto wait(ticks duration) noexcept { return awaiter(*this, duration); }

  // Ends the wait, or the next one when nobody waits. From any thread but not inside a lock that
  // the waiter needs to go on.
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

  pool_resumption resumption_;  // of a cancelled waiter: the canceller may hold what it needs

  // Guarded by lock_.
  srw_lock lock_;
  std::coroutine_handle<> waiter_;
  bool cancelled_ = false;

  unique_threadpool_timer timer_;
};

// A timer that the cancellation of a token cancels. The constructor throws operation_cancelled when
// the token is cancelled already. The destructor ends the subscription first, so no cancel of its
// own is under way when the timer goes.
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
