#include "async/timer.h"

#include <mutex>
#include <utility>

#include "async/errors.h"

namespace ostra {

async_timer::async_timer()
    : timer_(details::check_pointer(::CreateThreadpoolTimer(&on_fired, this, nullptr))) {}

bool async_timer::start(std::coroutine_handle<> waiter, ticks duration) noexcept {
  const std::lock_guard guard(lock_);
  if (cancelled_)
    return false;
  waiter_ = waiter;
  FILETIME due = details::relative_time(duration);
  ::SetThreadpoolTimer(timer_.get(), &due, 0, 0);
  return true;
}

void async_timer::finish() {
  const std::lock_guard guard(lock_);
  if (std::exchange(cancelled_, false))
    throw timer_cancelled();
}

std::coroutine_handle<> async_timer::take_waiter() noexcept {
  const std::lock_guard guard(lock_);
  return std::exchange(waiter_, nullptr);
}

void CALLBACK async_timer::on_fired(PTP_CALLBACK_INSTANCE instance, void* context,
                                    PTP_TIMER) noexcept {
  const auto waiter = static_cast<async_timer*>(context)->take_waiter();
  if (!waiter)
    return;
  ::DisassociateCurrentThreadFromCallback(instance);
  waiter.resume();
}

void async_timer::cancel() noexcept {
  std::coroutine_handle<> waiter;
  {
    const std::lock_guard guard(lock_);
    cancelled_ = true;
    waiter = std::exchange(waiter_, nullptr);
    if (!waiter)
      return;
    ::SetThreadpoolTimer(timer_.get(), nullptr, 0, 0);
  }
  // A firing already under way finds no waiter; when this returns, none is under way.
  ::WaitForThreadpoolTimerCallbacks(timer_.get(), TRUE);
  resumption_.resume(waiter);
}

}  // namespace ostra
