// A process-wide pointer to an object that some scope owns.
#pragma once

#include <mutex>
#include <shared_mutex>

#include "async/srw_lock.h"

namespace ostra {

// Whoever uses the object does so under the shared lock, so once withdraw() has returned nobody
// uses it any more and nobody will: the owner may destroy it while other threads go on. Trivially
// destructible, since pool threads may still look at it while the process exits.
template <class T>
class published {
 public:
  constexpr published() noexcept = default;

  void publish(T& object) noexcept { set(&object); }
  void withdraw() noexcept { set(nullptr); }

  // Calls action(object) if there is one. The action must not publish or withdraw.
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
