#include "client/line/line_session.h"

#include <mutex>
#include <utility>

#include "async/errors.h"

namespace tarnwheel::client {

line_session::line_session()
    : news_(ostra::details::check_pointer(::CreateEventW(nullptr, FALSE, FALSE, nullptr))) {}

void line_session::fail(const client_error& reason) {
  {
    const std::lock_guard guard(lock_);
    if (!failure_)
      failure_ = reason;
  }
  notify();
}

std::optional<client_error> line_session::failure() const {
  const std::lock_guard guard(lock_);
  return failure_;
}

std::optional<client_error> line_session::take_failure() {
  const std::lock_guard guard(lock_);
  return std::exchange(failure_, std::nullopt);
}

void line_session::throw_failure() const {
  if (const auto reason = failure())
    throw *reason;
}

HANDLE line_session::wait_for(std::initializer_list<HANDLE> signals, DWORD limit) {
  const auto count = static_cast<DWORD>(signals.size());
  const DWORD signalled = ::WaitForMultipleObjects(count, signals.begin(), FALSE, limit);
  return signalled < WAIT_OBJECT_0 + count ? signals.begin()[signalled - WAIT_OBJECT_0] : nullptr;
}

DWORD line_session::milliseconds_until(std::chrono::steady_clock::time_point end) {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
  return left > milliseconds::zero() ? static_cast<DWORD>(left.count()) : 0;
}

}  // namespace tarnwheel::client
