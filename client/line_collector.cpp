#include "client/line_collector.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace tarnwheel::client {

using std::chrono::milliseconds;

std::vector<std::byte> line_collector::take_when_quiet(milliseconds quiet, milliseconds limit) {
  const auto deadline = clock::now() + limit;
  const std::lock_guard guard(lock_);
  for (;;) {
    if (reason_)
      throw *reason_;
    const auto now = clock::now();
    const auto end = bytes_.empty() ? deadline : std::min(deadline, last_ + quiet);
    if (now >= end)
      return std::exchange(bytes_, {});
    const auto rest = std::chrono::ceil<milliseconds>(end - now);
    news_.wait_for(lock_, static_cast<DWORD>(rest.count()));
  }
}

ostra::future<void> line_collector::received(std::vector<std::byte> bytes) {
  const std::lock_guard guard(lock_);
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  last_ = clock::now();
  news_.notify_one();
  co_return;
}

void line_collector::ended(const client_error& reason) {
  const std::lock_guard guard(lock_);
  reason_ = reason;
  news_.notify_one();
}

}  // namespace tarnwheel::client
