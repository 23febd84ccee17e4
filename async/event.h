// A gate that coroutines pass when it is open.
#pragma once

#include <vector>

#include "async/future.h"
#include "async/srw_lock.h"

namespace tarnwheel::client {

// Any thread. Those who wait go on inside the call that opens the gate.
class gate {
 public:
  explicit gate(bool open) : open_(open) {}

  void open();
  void shut();

  // Completes when the gate is open, at once if it is.
  [[nodiscard]] ostra::future<void> wait();

 private:
  // Guarded by lock_.
  ostra::srw_lock lock_;
  bool open_;
  std::vector<ostra::promise<void>> waiting_;
};

}  // namespace tarnwheel::client
