#include "server/session_group.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace tarnwheel {

session_group::place::place(std::shared_ptr<session_group> group, std::size_t index) noexcept
    : group_(std::move(group)), index_(index) {}

session_group::place& session_group::place::operator=(place&& other) noexcept {
  leave();
  group_ = std::move(other.group_);
  index_ = other.index_;
  return *this;
}

session_group::place::~place() {
  leave();
}

void session_group::place::leave() noexcept {
  if (const auto group = std::exchange(group_, nullptr))
    group->leave(index_);
}

void session_group::place::set_port(std::uint32_t number) noexcept {
  const std::lock_guard guard(group_->lock_);
  group_->ports_[index_] = number;
}

session_group::session_group(std::size_t places) : ports_(places, kFree) {}

std::optional<session_group::place> session_group::try_take() noexcept {
  const std::lock_guard guard(lock_);
  return take_free();
}

std::optional<session_group::place> session_group::take_free() noexcept {
  const auto free = std::ranges::find(ports_, kFree);
  if (closed_ || free == ports_.end())
    return std::nullopt;
  *free = 0;
  return place(shared_from_this(), static_cast<std::size_t>(free - ports_.begin()));
}

ostra::future<session_group::place> session_group::take() {
  std::list<ostra::promise<place>> waiter(1);  // destroyed last: fails the future unless kept
  auto result = waiter.front().get_future();
  std::optional<place> free;
  {
    const std::lock_guard guard(lock_);
    free = take_free();
    if (!free && !closed_)
      waiting_.splice(waiting_.end(), waiter);
  }
  if (free)
    waiter.front().set_value(*std::move(free));
  return result;
}

void session_group::leave(std::size_t index) noexcept {
  std::list<ostra::promise<place>> next;
  bool is_closed = false;
  {
    const std::lock_guard guard(lock_);
    if (waiting_.empty()) {
      ports_[index] = kFree;
      is_closed = closed_;
    } else {
      ports_[index] = 0;
      next.splice(next.end(), waiting_, waiting_.begin());
    }
  }
  if (!next.empty())
    next.front().set_value(place(shared_from_this(), index));
  if (is_closed)
    left_.set();
}

void session_group::close() noexcept {
  std::list<ostra::promise<place>> refused;  // destroyed, which fails them, after the unlock
  const std::lock_guard guard(lock_);
  closed_ = true;
  refused.swap(waiting_);
}

bool session_group::is_empty() const noexcept {
  const std::lock_guard guard(lock_);
  return std::ranges::count(ports_, kFree) == std::ssize(ports_);
}

ostra::future<bool> session_group::departed(ostra::ticks limit) {
  const auto self = shared_from_this();
  while (!is_empty()) {
    auto departure = left_.wait_for(limit);
    const bool has_left = co_await departure;
    if (!has_left)
      co_return false;
  }
  co_return true;
}

std::vector<std::uint32_t> session_group::ports() const {
  std::vector<std::uint32_t> ports;
  const std::lock_guard guard(lock_);
  for (const std::int64_t port : ports_) {
    if (port != kFree)
      ports.push_back(static_cast<std::uint32_t>(port));
  }
  return ports;
}

}  // namespace tarnwheel
