#include "log/screen_copy.h"

#include <mutex>
#include <new>
#include <utility>

#include "console/print.h"

namespace logging {

void screen_copy::write(std::wstring line) {
  {
    const std::lock_guard guard(lock_);
    lines_.push({std::move(line)});
    if (printing_)
      return;
    printing_ = shared_from_this();
  }
  post();
}

void screen_copy::run() noexcept {
  screen_line line;
  std::shared_ptr<screen_copy> self;  // ends last: it may be what keeps this object
  {
    const std::lock_guard guard(lock_);
    self = printing_;
  }
  while (take(line)) {
    try {
      if (line.left_out != 0)
        line.text = L"(" + std::to_wstring(line.left_out) + L" lines are not shown)\n";
      console::print(console::standard_stream::output, line.text);
    } catch (const std::bad_alloc&) {
      // A line for which there is no memory is lost.
    }
  }
}

bool screen_copy::take(screen_line& line) noexcept {
  const std::lock_guard guard(lock_);
  if (lines_.take(line))
    return true;
  printing_.reset();
  finished_.notify_one();
  return false;
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
