#include "rpc/request_load.h"

#include <mutex>
#include <utility>

namespace tether {

RequestLoad::Request::Request(std::shared_ptr<RequestLoad> load, const RequestCost& cost) noexcept
    : load_(std::move(load)), cost_(cost) {}

RequestLoad::Request::~Request() {
  if (load_)
    load_->End(cost_);
}

RequestLoad::RequestLoad(ostra::cancellation_source cancellation) noexcept
    : cancellation_(std::move(cancellation)) {}

RequestLoad::Request RequestLoad::Begin(const RequestCost& cost) noexcept {
  {
    const std::lock_guard guard(lock_);
    ++requests_;
    bytes_ += cost.bytes;
    has_serial_ = has_serial_ || cost.is_serial;
    has_barrier_ = has_barrier_ || cost.is_barrier;
  }
  return {shared_from_this(), cost};
}

void RequestLoad::End(const RequestCost& cost) noexcept {
  bool is_awaited = false;
  {
    const std::lock_guard guard(lock_);
    --requests_;
    bytes_ -= cost.bytes;
    if (cost.is_serial)
      has_serial_ = false;
    if (cost.is_barrier)
      has_barrier_ = false;
    is_awaited = std::exchange(is_awaited_, false);
  }
  if (is_awaited)
    ended_->set();
}

bool RequestLoad::admits(const RequestCost& cost) const noexcept {
  return requests_ < kMaxRequests && bytes_ <= kMaxBytes && !has_barrier_ &&
         !(cost.is_serial && has_serial_);
}

bool RequestLoad::Admits(const RequestCost& cost) const noexcept {
  const std::lock_guard guard(lock_);
  return admits(cost);
}

bool RequestLoad::AdmitsOrAwaits(const RequestCost& cost) noexcept {
  const std::lock_guard guard(lock_);
  is_awaited_ = !admits(cost);
  return !is_awaited_;
}

ostra::future<bool> RequestLoad::WaitFor(RequestCost cost, ostra::ticks limit) {
  const auto self = shared_from_this();
  if (!ended_)
    ended_.emplace(cancellation_.token());
  while (!AdmitsOrAwaits(cost)) {
    auto ending = ended_->wait_for(limit);
    const bool ended = co_await ending;
    if (!ended)
      co_return false;
  }
  co_return true;
}

std::size_t RequestLoad::count() const noexcept {
  const std::lock_guard guard(lock_);
  return requests_;
}

}  // namespace tether
