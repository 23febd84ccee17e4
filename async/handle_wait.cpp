#include "async/handle_wait.h"

#include "async/errors.h"

namespace ostra {

FILETIME details::relative_time(ticks duration) noexcept {
  const auto due = static_cast<std::uint64_t>(-duration.count());
  return {static_cast<DWORD>(due), static_cast<DWORD>(due >> 32)};
}

handle_wait::handle_wait(HANDLE handle, ticks timeout)
    : handle_(handle),
      timeout_(timeout),
      wait_(details::check_pointer(::CreateThreadpoolWait(&on_wait_over, this, nullptr))) {}

void handle_wait::await_suspend(std::coroutine_handle<> waiter) noexcept {
  waiter_ = waiter;
  FILETIME due = details::relative_time(timeout_);
  FILETIME* const limit = timeout_ == ticks::zero() ? nullptr : &due;
  // Once armed, the wait may complete and destroy this object, so nothing may follow.
  ::SetThreadpoolWait(wait_.get(), handle_, limit);
}

void CALLBACK handle_wait::on_wait_over(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT,
                                        TP_WAIT_RESULT result) noexcept {
  auto& self = *static_cast<handle_wait*>(context);
  self.signalled_ = result == WAIT_OBJECT_0;
  self.waiter_.resume();
}

}  // namespace ostra
