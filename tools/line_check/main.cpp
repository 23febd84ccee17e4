// Checks a server and a real serial line: tarnwheel-line-check SERVER PORT. The line's port has a
// plug that joins TX to RX, RTS to CTS, and DTR to DSR and DCD. Prints a row for each check; the
// exit code is the number of failed checks, or 100 when none could be made. With --unplug it checks
// only the unplugging of the device, and says when to do it.
#include <memory>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "app/command_line/numbers.h"
#include "client/line/client_error.h"
#include "console/print.h"
#include "format/format.h"
#include "tools/line_check/line_checks.h"

namespace tarnwheel::tools {
namespace {

using console::print;
using console::standard_stream;

template <class Check>
int report(const wchar_t* name, Check check) {
  std::wstring reason;
  try {
    check();
  } catch (const check_failure& failure) {
    reason = failure.reason;
  } catch (const client::client_error& error) {
    reason = error.message();
  }
  const bool passed = reason.empty();
  print(standard_stream::output, tfmt::format(L"{0?<}PASS{0?|}FAIL{0?>}  {1}{2}{3}\n", passed, name,
                                              passed ? L"" : L": ", reason));
  return passed ? 0 : 1;
}

int check_line(const place& place, bool unplug) {
  auto line = std::make_unique<remote_port>(place);
  int failures = report(L"the port opens", [&] { expect_code(line->open(), S_OK); });
  if (failures != 0)
    return failures;
  if (unplug)
    failures += report(L"unplugging", [&] { survives_unplugging(*line, place); });
  else
    for (const auto& check : line_checks())
      failures += report(check.name, [&] { check.run(*line, place); });
  line.reset();
  return failures + report(L"the port is free again", [&] {
           remote_port next(place);
           expect(holds_within([&] { return next.open() == S_OK; }, kAnswerLimit),
                  L"it cannot be opened");
         });
}

int run() {
  Tamrin::command_line options;
  const auto& unplug = options.add_flag(L"unplug");
  options.parse(::GetCommandLineW());
  if (options.positional().size() != 2)
    throw Tamrin::cmd_line_syntax_error("A server and a port are needed.");
  const place place = {std::wstring(options.positional()[0]),
                       Tamrin::parse_port(options.positional()[1])};
  return check_line(place, unplug.flag());
}

}  // namespace
}  // namespace tarnwheel::tools

int main() {
  constexpr int kNotChecked = 100;
  try {
    return tarnwheel::tools::run();
  } catch (const Tamrin::cmd_line_syntax_error&) {
    console::print(console::standard_stream::error,
                   L"Usage: tarnwheel-line-check SERVER PORT [--unplug]\n");
  } catch (const tarnwheel::client::client_error& error) {
    console::print(console::standard_stream::error, error.message() + L"\n");
  }
  return kNotChecked;
}
