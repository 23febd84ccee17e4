// A time limit for one call: a device error leaves a call without a reply, and such a call ends
// with its connection only.
#pragma once

#include <atomic>
#include <chrono>

#include "async/future.h"
#include "async/timer.h"
#include "rpc/connection.h"

namespace tarnwheel::client {

// Cancels the connection, which must outlive this, when the limit passes before the destructor
// runs. The connection is then of no more use.
class call_limit {
 public:
  call_limit(tether::ConnectionBase& connection, std::chrono::milliseconds limit);
  call_limit(const call_limit&) = delete;
  call_limit& operator=(const call_limit&) = delete;
  ~call_limit();

  // True when the limit has passed; certain once a call has failed because of it.
  [[nodiscard]] bool passed() const noexcept { return passed_; }

 private:
  ostra::future<void> watch(std::chrono::milliseconds limit);

  tether::ConnectionBase& connection_;
  std::atomic<bool> passed_ = false;  // set before the connection is cancelled
  ostra::async_timer timer_;
  const ostra::future<void> watching_;  // last: it uses the others from its start
};

}  // namespace tarnwheel::client
