#include "client/time_limit.h"

#include <utility>

#include "async/errors.h"

namespace tarnwheel::client {

time_limit::time_limit(std::function<void()> expire, std::chrono::milliseconds limit)
    : expire_(std::move(expire)), watching_(watch(limit)) {}

time_limit::~time_limit() {
  timer_.cancel();
  watching_.wait();
}

ostra::future<void> time_limit::watch(std::chrono::milliseconds limit) {
  try {
    auto wait = timer_.wait(limit);
    co_await wait;
  } catch (const ostra::timer_cancelled&) {
    co_return;  // what was limited has ended first
  }
  passed_ = true;
  expire_();
}

}  // namespace tarnwheel::client
