// Policies for resuming a coroutine that another thread wakes.
#pragma once

#include <coroutine>

#include "async/background.h"

namespace ostra {

// Resumes on the waking thread, at once.
class inline_resumption {
 public:
  void resume(std::coroutine_handle<> waiter) const noexcept { waiter.resume(); }
};

// Resumes on a pool thread: the waking thread may hold what the waiter needs, or must not be held
// up. One waiter at a time, which keeps this object alive until it runs. The constructor throws
// hresult_error.
class pool_resumption final : public background_call {
 public:
  void resume(std::coroutine_handle<> waiter) noexcept {
    waiter_ = waiter;
    post();
  }

 private:
  void run() noexcept override { waiter_.resume(); }

  std::coroutine_handle<> waiter_;
};

}  // namespace ostra
