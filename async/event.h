// A manual-reset event for coroutines.
#pragma once

#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"

namespace ostra {

// Any thread may call any member, and there may be any number of waiters. set() resumes them inside
// the call, after releasing the lock; a subsequent reset() does not hold back a waiter that set()
// has already released. A wait still pending when the event is destroyed fails with
// operation_cancelled.
class async_event {
 public:
  explicit async_event(bool set) : set_(set) {}

  void set();
  void reset();

  // Completes when the event is set, at once if it already is.
  [[nodiscard]] future<void> wait();

 private:
  // Guarded by lock_.
  srw_lock lock_;
  bool set_;
  std::vector<promise<void>> waiters_;
};

}  // namespace ostra
