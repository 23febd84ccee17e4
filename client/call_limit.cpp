#include "client/call_limit.h"

#include "async/errors.h"

namespace tarnwheel::client {

call_limit::call_limit(tether::ConnectionBase& connection, std::chrono::milliseconds limit)
    : connection_(connection), watching_(watch(limit)) {}

call_limit::~call_limit() {
  timer_.cancel();
  watching_.wait();
}

ostra::future<void> call_limit::watch(std::chrono::milliseconds limit) {
  try {
    auto wait = timer_.wait(limit);
    co_await wait;
  } catch (const ostra::timer_cancelled&) {
    co_return;  // the call has ended first
  }
  passed_ = true;
  connection_.Cancel();
}

}  // namespace tarnwheel::client
