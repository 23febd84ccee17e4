// A time limit for what would otherwise wait for others as long as it takes them.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>

#include "async/future.h"
#include "async/timer.h"

namespace tarnwheel::client {

// Calls `expire` once, on a thread of the pool, when the limit passes before the destructor runs.
// It must not throw, and what it uses must outlive this.
class time_limit {
 public:
  time_limit(std::function<void()> expire, std::chrono::milliseconds limit);
  time_limit(const time_limit&) = delete;
  time_limit& operator=(const time_limit&) = delete;
  ~time_limit();

  // True when the limit has passed; set before `expire` is called.
  [[nodiscard]] bool passed() const noexcept { return passed_; }

 private:
  ostra::future<void> watch(std::chrono::milliseconds limit);

  const std::function<void()> expire_;
  std::atomic<bool> passed_ = false;
  ostra::async_timer timer_;
  const ostra::future<void> watching_;  // last: it uses the others from its start
};

}  // namespace tarnwheel::client
