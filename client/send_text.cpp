#include "app/command_line/numbers.h"
#include "client/client_options.h"
#include "client/line_collector.h"
#include "client/line_settings.h"
#include "client/remote_line.h"
#include "client/verb.h"
#include "console/print.h"
#include "console/utf8.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

// A line that says nothing for so long is taken to have finished.
constexpr std::chrono::milliseconds kQuiet(200);

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
