// An auto-reset event that one coroutine awaits with a time limit.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"
#include "async/timer.h"

namespace ostra {

// Any thread may set it, and setting it neither blocks nor fails; the waiter resumes on a pool
// thread. A set while there is no waiter ends the next wait at once, and several such sets count as
// one. So a thread that makes a change and then sets the event is never missed.
//
// The event must outlive every wait and every call of set().
class auto_reset_event {
 public:
  // Throws hresult_error, or operation_cancelled when `token` is already cancelled.
  explicit auto_reset_event(const cancellation_token& token = {}) : token_(token), timer_(token) {}

  void set() noexcept { timer_.cancel(); }

  // Completes with true when the event is set, with false when `limit` passes first. Fails with
  // operation_cancelled when the token is cancelled. One wait at a time.
  [[nodiscard]] future<bool> wait_for(ticks limit);

 private:
  const cancellation_token token_;
  auto_cancel_timer timer_;
};

}  // namespace ostra
