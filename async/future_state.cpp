#include "async/future_state.h"

#include <mutex>

namespace ostra::details {
namespace {

// A thread that is blocked until a state completes; lives on that thread's stack.
class blocked_thread {
 public:
  void sleep() noexcept {
    const std::lock_guard guard(lock_);
    while (!woken_)
      wake_.wait(lock_);
  }

  static void wake(void* context) noexcept {
    auto& self = *static_cast<blocked_thread*>(context);
    const std::lock_guard guard(self.lock_);
    self.woken_ = true;
    self.wake_.notify_one();
  }

 private:
  srw_lock lock_;
  condition_variable wake_;
  bool woken_ = false;
};

}  // namespace

continuation resume_coroutine(std::coroutine_handle<> waiter) noexcept {
  return {[](void* frame) noexcept { std::coroutine_handle<>::from_address(frame).resume(); },
          waiter.address()};
}

bool future_state::is_complete() const noexcept {
  const std::lock_guard guard(lock_);
  return status_ != status::pending;
}

bool future_state::set_continuation(continuation next) noexcept {
  const std::lock_guard guard(lock_);
  if (status_ != status::pending)
    return false;
  if (continuation_.resume != nullptr)
    std::terminate();
  continuation_ = next;
  return true;
}

void future_state::complete() noexcept {
  continuation next;
  {
    const std::lock_guard guard(lock_);
    status_ = exception_ ? status::failed : status::succeeded;
    next = std::exchange(continuation_, {});
  }
  if (next.resume != nullptr)
    next.resume(next.context);
}

void future_state::wait() noexcept {
  blocked_thread thread;
  if (set_continuation({&blocked_thread::wake, &thread}))
    thread.sleep();
}

}  // namespace ostra::details
