// An event that one coroutine waits for, for a limited time.
#pragma once

#include "async/cancellation.h"
#include "async/future.h"
#include "async/timer.h"

namespace ostra {

// Any thread may set it, and setting it neither blocks nor fails; the waiter goes on on a pool
// thread. A set while nobody waits ends the next wait at once, and several of them count as one, so
// whoever changes something first and sets the event afterwards is never missed.
//
// The event outlives every wait and every call of set().
class auto_reset_event {
 public:
  // Throws hresult_error, operation_cancelled when `token` is cancelled already.
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
