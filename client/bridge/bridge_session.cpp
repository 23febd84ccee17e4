#include "client/bridge/bridge_session.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "async/errors.h"
#include "async/within.h"

namespace tarnwheel::client {
namespace {

constexpr std::size_t kReadSize = 16 * 1024;  // bytes
constexpr std::chrono::seconds kDrainLimit(30);

}  // namespace

bridge_session::bridge_session(std::shared_ptr<byte_stream> program, remote_line& line)
    : program_(std::move(program)), line_(line), to_program_(program_) {}

ostra::future<void> bridge_session::run() {
  const auto self = shared_from_this();
  const auto following = follow_line();
  std::vector<std::byte> buffer(kReadSize);
  try {
    auto begun = begin();
    co_await begun;
    for (;;) {
      auto read = program_->read(buffer);
      const std::size_t size = co_await read;
      if (size == 0 || !note_activity())
        break;
      const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(size);
      auto taken = take(std::vector<std::byte>(buffer.begin(), end));
      co_await taken;
      note_activity();
    }
  } catch (const ostra::hresult_error&) {
    // The program has gone, or close() was called.
  }
  close();
  co_await following;
  auto ended = end();
  co_await ended;
}

ostra::future<void> bridge_session::drain() {
  try {
    auto drained = ostra::within(line_.drained(), kDrainLimit);
    co_await drained;
  } catch (const ostra::hresult_error&) {
    // The rest is lost when the line closes.
  }
}

void bridge_session::close() noexcept {
  {
    const std::lock_guard guard(lock_);
    closed_ = true;
  }
  program_->cancel();
  to_program_.close();
  news_.set();
}

bool bridge_session::close_if_idle(clock::duration limit) noexcept {
  {
    const std::lock_guard guard(lock_);
    if (idle_for() < limit)
      return false;
    closed_ = true;  // no further bytes are taken
  }
  close();
  return true;
}

// False when the session has been closed.
bool bridge_session::note_activity() noexcept {
  const std::lock_guard guard(lock_);
  active_ = clock::now();
  return !closed_;
}

bool bridge_session::is_closed() const noexcept {
  const std::lock_guard guard(lock_);
  return closed_;
}

void bridge_session::changed(std::uint32_t events) {
  events_ |= events;
  news_.set();
}

ostra::future<void> bridge_session::follow_line() {
  const auto self = shared_from_this();
  try {
    for (;;) {
      auto news = news_.wait();
      co_await news;
      news_.reset();  // before events_ is read, so that no later event is missed
      if (is_closed())
        co_return;
      auto done = notify_of(events_.exchange(0));
      co_await done;
    }
  } catch (const ostra::hresult_error&) {
    // The program has gone.
  }
}

ostra::future<void> bridge_session::deliver(std::vector<std::byte> bytes) {
  const auto self = shared_from_this();
  auto sent = send(std::move(bytes));
  co_await sent;
  note_activity();
}

ostra::future<void> bridge_session::send(std::vector<std::byte> bytes) {
  return to_program_.send(std::move(bytes));
}

std::chrono::steady_clock::duration bridge_session::idle_time() const noexcept {
  const std::lock_guard guard(lock_);
  return idle_for();
}

// Called with lock_ held.
bridge_session::clock::duration bridge_session::idle_for() const noexcept {
  const auto last = std::max(active_, line_.busy_until());
  return std::max(clock::now() - last, clock::duration::zero());
}

ostra::future<void> bridge_session::begin() {
  co_return;
}

ostra::future<void> bridge_session::end() {
  co_return;
}

ostra::future<void> bridge_session::notify_of(std::uint32_t) {
  co_return;
}

ostra::future<void> bridge_session::take(std::vector<std::byte> bytes) {
  return line_.write(std::move(bytes));
}

}  // namespace tarnwheel::client
