#include "async/event.h"

#include <mutex>
#include <utility>

namespace ostra {

void async_event::set() {
  std::vector<promise<void>> released;
  {
    const std::lock_guard guard(lock_);
    set_ = true;
    released.swap(waiters_);
  }
  for (auto& waiter : released)
    waiter.set_value();
}

void async_event::reset() {
  const std::lock_guard guard(lock_);
  set_ = false;
}

future<void> async_event::wait() {
  promise<void> waiter;
  auto released = waiter.get_future();
  {
    const std::lock_guard guard(lock_);
    if (!set_) {
      waiters_.push_back(std::move(waiter));
      return released;
    }
  }
  waiter.set_value();
  return released;
}

}  // namespace ostra
