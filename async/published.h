// A process-wide pointer to an object owned by some scope.
#pragma once

#include <mutex>
#include <shared_mutex>

#include "async/srw_lock.h"

namespace ostra {

// The object is used only under the shared lock, so once withdraw() has returned, no thread uses it
// or ever will: its owner may destroy it while other threads run on. Trivially destructible, since
// pool threads may still access it while the process exits.
template <class T>
class published {
 public:
  constexpr published() noexcept = default;

  void publish(T& object) noexcept { set(&object); }
  void withdraw() noexcept { set(nullptr); }

  // Calls action(object) if an object is published. The action must not publish or withdraw.
  template <class Action>
  void use(Action action) {
    const std::shared_lock guard(lock_);
    if (object_ != nullptr)
      action(*object_);
  }

 private:
  void set(T* object) noexcept {
    const std::lock_guard guard(lock_);
    object_ = object;
  }

  srw_lock lock_;
  T* object_ = nullptr;  // guarded by lock_
};

}  // namespace ostra
