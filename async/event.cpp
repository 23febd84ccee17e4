#include "client/gate.h"

#include <mutex>
#include <utility>

namespace tarnwheel::client {

void gate::open() {
  std::vector<ostra::promise<void>> passing;
  {
    const std::lock_guard guard(lock_);
    open_ = true;
    passing.swap(waiting_);
  }
  for (auto& promise : passing)
    promise.set_value();
}

void gate::shut() {
  const std::lock_guard guard(lock_);
  open_ = false;
}

ostra::future<void> gate::wait() {
  ostra::promise<void> promise;
  auto passed = promise.get_future();
  {
    const std::lock_guard guard(lock_);
    if (!open_) {
      waiting_.push_back(std::move(promise));
      return passed;
    }
  }
  promise.set_value();
  return passed;
}

}  // namespace tarnwheel::client
