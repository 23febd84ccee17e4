#include "log/screen_copy.h"

#include <chrono>
#include <new>
#include <utility>

#include "async/errors.h"
#include "async/within.h"
#include "console/print.h"

namespace logging {
namespace {

void print_line(log_entry line) noexcept {
  try {
    if (line.left_out != 0)
      line.text = L"(" + std::to_wstring(line.left_out) + L" lines are not shown)\n";
    console::print(console::standard_stream::output, line.text);
  } catch (const std::bad_alloc&) {
    // Out of memory: the line is lost.
  }
}

}  // namespace

ostra::future<void> screen_copy::print_lines(std::shared_ptr<line_queue> lines) {
  for (;;) {
    auto popped = lines->pop();
    auto next = co_await popped;
    if (!next)
      co_return;
    print_line(std::move(*next));
  }
}

bool screen_copy::finish(DWORD patience) {
  lines_->finish();
  try {
    ostra::within(printing_, std::chrono::milliseconds(patience)).get();
    return true;
  } catch (...) {
    return false;  // the screen is blocked, or there is no memory to wait with
  }
}

}  // namespace logging
