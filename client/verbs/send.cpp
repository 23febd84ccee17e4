#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "app/command_line/numbers.h"
#include "async/srw_lock.h"
#include "client/line/line_settings.h"
#include "client/line/remote_line.h"
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

// Keeps the bytes of a line for a thread that waits for them.
class line_collector final : public line_receiver {
 public:
  // Blocks until something has come and the line was then quiet for `quiet`, or until `limit` has
  // passed; gives what has come since the last call. Throws client_error when the line has ended.
  [[nodiscard]] std::vector<std::byte> take_when_quiet(milliseconds quiet, milliseconds limit);

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override;

 private:
  using clock = std::chrono::steady_clock;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  ostra::condition_variable news_;
  std::vector<std::byte> bytes_;
  clock::time_point last_ = clock::time_point::max();  // when bytes came
  std::optional<client_error> reason_;
};

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

}  // namespace

void add_send_options(Tamrin::command_line& line) {
  add_timeout_option(line);
  add_line_options(line);
}

void send_text(const invocation& request) {
  // The command line is judged as a whole before anything happens.
  const std::uint32_t number = Tamrin::parse_port(request.arguments[1]);
  const line_settings line = line_settings_of(request.options);
  const auto limit = waiting_limit_of(request.options);

  line_collector collector;
  remote_line port(request.arguments[0], number);
  port.set_line(line).get();
  port.start(collector, 0);
  port.write(console::to_utf8(request.arguments[2])).get();
  port.drained().get();

  const std::wstring answer = console::from_utf8(collector.take_when_quiet(kQuiet, limit));
  if (answer.empty()) {
    const auto count = static_cast<std::uint32_t>(limit.count());
    console::print(console::standard_stream::error,
                   tfmt::format(L"{0} sent nothing within {1} ms\n", port.name(), count));
    return;
  }
  console::print(console::standard_stream::output, answer + L"\n");
}

}  // namespace tarnwheel::client
