#include "server/session_group.h"

#include <mutex>
#include <utility>

namespace tarnwheel {

session_group::membership::membership(std::shared_ptr<session_group> group) noexcept
    : group_(std::move(group)) {
  const std::lock_guard guard(group_->lock_);
  ++group_->size_;
}

session_group::membership::~membership() {
  if (group_)
    group_->leave();
}

ostra::future<void> session_group::departed() {
  ostra::promise<void> promised;
  auto result = promised.get_future();
  {
    const std::lock_guard guard(lock_);
    if (size_ != 0) {
      departed_ = std::move(promised);
      return result;
    }
  }
  promised.set_value();
  return result;
}

std::size_t session_group::size() const noexcept {
  const std::lock_guard guard(lock_);
  return size_;
}

void session_group::leave() noexcept {
  std::optional<ostra::promise<void>> last;
  {
    const std::lock_guard guard(lock_);
    if (--size_ == 0)
      last = std::exchange(departed_, std::nullopt);
  }
  if (last)
    last->set_value();
}

}  // namespace tarnwheel
