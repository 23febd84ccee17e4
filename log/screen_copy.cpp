#include "log/screen_copy.h"

#include <mutex>
#include <new>
#include <utility>

#include "console/print.h"

namespace logging {

void screen_copy::write(std::wstring line) {
  {
    const std::lock_guard guard(lock_);
    if (lines_.size() >= kMostLines)
      return;
    lines_.push_back(std::move(line));
    if (printing_)
      return;
    printing_ = shared_from_this();
  }
  post();
}

void screen_copy::run() noexcept {
  std::wstring line;
  std::shared_ptr<screen_copy> self;  // ends last: it may be what keeps this object
  {
    const std::lock_guard guard(lock_);
    self = printing_;
  }
  while (take(line)) {
    try {
      console::print(console::standard_stream::output, line);
    } catch (const std::bad_alloc&) {
      // The line is in the log file.
    }
  }
}

bool screen_copy::take(std::wstring& line) noexcept {
  const std::lock_guard guard(lock_);
  if (lines_.empty()) {
    printing_.reset();
    finished_.notify_one();
    return false;
  }
  line = std::move(lines_.front());
  lines_.pop_front();
  return true;
}

bool screen_copy::finish(DWORD patience) noexcept {
  const ULONGLONG deadline = ::GetTickCount64() + patience;
  const std::lock_guard guard(lock_);
  while (printing_) {
    const ULONGLONG now = ::GetTickCount64();
    if (now >= deadline)
      return false;
    finished_.wait_for(lock_, static_cast<DWORD>(deadline - now));
  }
  return true;
}

}  // namespace logging
