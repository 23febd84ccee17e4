// A promise that is always fulfilled.
#pragma once

#include <optional>
#include <utility>

#include "async/future.h"

namespace ostra {

// For waiters that continue when something is done or never will be: the future completes on
// complete() or in the destructor, whichever comes first, and never fails. The waiter runs inside
// that call. One thread at a time.
class completion {
 public:
  completion() = default;
  completion(completion&& other) noexcept : promise_(std::exchange(other.promise_, std::nullopt)) {}
  completion& operator=(completion&& other) noexcept {
    std::swap(promise_, other.promise_);
    return *this;
  }
  ~completion() { complete(); }

  // Must precede complete().
  [[nodiscard]] future<void> get_future() const { return promise_->get_future(); }

  void complete() {
    if (auto promise = std::exchange(promise_, std::nullopt))
      promise->set_value();
  }

 private:
  std::optional<promise<void>> promise_{std::in_place};
};

}  // namespace ostra
