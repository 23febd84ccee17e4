#include "client/line/retry.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;
using std::chrono::milliseconds;

constexpr wchar_t kRetry[] = L"retry";

}  // namespace

void add_retry_option(Tamrin::command_line& line) {
  line.add_flag(kRetry).description =
      L"Wait for the server and the port, and reconnect when they are lost. Data in transit at "
      L"that moment is lost.";
}

milliseconds growing_pause::next(milliseconds held) noexcept {
  if (held > kMaxPause)
    next_ = kShortest;
  return std::exchange(next_, std::min(next_ * 2, kMaxPause));
}

attempts::attempts(const Tamrin::command_line& options, const console::interrupt& stop)
    : attempts(options, [&stop](milliseconds time) { return stop.wait(time); }) {}

attempts::attempts(const Tamrin::command_line& options, pause_function pause,
                   std::wstring_view hint)
    : again_(options.at(kRetry).flag()), pause_function_(std::move(pause)), hint_(hint) {}

void attempts::run(const std::function<void()>& session) {
  for (;;) {
    reached_ = clock::time_point::max();
    std::optional<client_error> failed;
    try {
      session();
    } catch (const client_error& error) {
      failed = error;  // the boundary of a session
    }
    if (!failed || pause_function_(milliseconds::zero()) || !wait_after(*failed))
      return;
  }
}

bool attempts::wait_after(const client_error& error) {
  if (!again_ || error.kind() == failure::usage || error.kind() == failure::local)
    throw error;
  if (!std::exchange(waiting_, true))
    print(standard_stream::error, error.message() + L"; trying again" + hint_ + L"\n");
  const auto now = clock::now();
  const auto held = reached_ > now ? milliseconds::zero()
                                   : std::chrono::duration_cast<milliseconds>(now - reached_);
  return !pause_function_(pauses_.next(held));
}

void attempts::reached(std::wstring_view what) {
  reached_ = clock::now();
  if (std::exchange(waiting_, false))
    print(standard_stream::error, tfmt::format(L"{0} is back\n", what));
}

}  // namespace tarnwheel::client
