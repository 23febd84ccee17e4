#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "async/srw_lock.h"
#include "client/line/line_session.h"
#include "client/line/line_settings.h"
#include "client/verbs/client_options.h"
#include "client/verbs/verb_table.h"
#include "console/print.h"
#include "console/utf8.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

// A line that says nothing for so long is taken to have finished.
constexpr milliseconds kQuiet(200);

// Collects the bytes of a line.
class answer final : public line_session {
 public:
  // Blocks until something has come and the line was then quiet for `quiet`, or until `limit` has
  // passed; gives the bytes. Throws client_error when the line has ended.
  [[nodiscard]] std::vector<std::byte> wait(milliseconds quiet, milliseconds limit);

  ostra::future<void> received(std::vector<std::byte> bytes) override;

 private:
  using clock = std::chrono::steady_clock;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::vector<std::byte> bytes_;
  clock::time_point last_;  // when bytes came
};

std::vector<std::byte> answer::wait(milliseconds quiet, milliseconds limit) {
  const auto deadline = clock::now() + limit;
  const auto left = [&] {
    throw_failure();
    const std::lock_guard guard(lock_);
    const auto end = bytes_.empty() ? deadline : std::min(deadline, last_ + quiet);
    return milliseconds_until(end);
  };
  static_cast<void>(wait_out(nullptr, left));
  const std::lock_guard guard(lock_);
  return std::exchange(bytes_, {});
}

ostra::future<void> answer::received(std::vector<std::byte> bytes) {
  {
    const std::lock_guard guard(lock_);
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    last_ = clock::now();
  }
  notify();
  co_return;
}

}  // namespace

void add_send_options(Tamrin::command_line& line) {
  add_timeout_option(line);
  add_line_options(line);
}

void send_text(const invocation& request) {
  // The command line is judged as a whole before anything happens.
  const line_address address = address_of(request);
  const auto limit = waiting_limit_of(request.options);

  answer collected;
  remote_line port(address);
  port.start(collected, 0);
  port.write(console::to_utf8(request.arguments[2])).get();
  port.drained().get();

  const std::wstring text = console::from_utf8(collected.wait(kQuiet, limit));
  if (text.empty()) {
    const auto count = static_cast<std::uint32_t>(limit.count());
    console::print(console::standard_stream::error,
                   tfmt::format(L"{0} sent nothing within {1} ms\n", port.name(), count));
    return;
  }
  console::print(console::standard_stream::output, text + L"\n");
}

}  // namespace tarnwheel::client
