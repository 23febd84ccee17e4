// Puts a serial port into the system's device list, so that servers list it, for as long as this
// program's standard input stays open: tarnwheel-test-port COM5 "Friendly name".
#include <string>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "async/errors.h"
#include "console/print.h"
#include "format/format.h"
#include "server/test_ports.h"

namespace {

using console::print;
using console::standard_stream;

void wait_for_end_of_input() {
  char input = 0;
  DWORD size = 0;
  while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), &input, 1, &size, nullptr) && size != 0) {
  }
}

void offer_port(const Tamrin::command_line& line) {
  if (line.positional().size() != 2)
    throw Tamrin::cmd_line_syntax_error("A port and a name are needed.");
  const tarnwheel::test::test_port port(std::wstring(line.positional()[0]),
                                        std::wstring(line.positional()[1]));
  print(standard_stream::output, L"ready\n");
  wait_for_end_of_input();
}

}  // namespace

int main() {
  try {
    Tamrin::command_line line;
    line.parse(::GetCommandLineW());
    offer_port(line);
    return 0;
  } catch (const Tamrin::cmd_line_syntax_error&) {
    print(standard_stream::error, L"Usage: tarnwheel-test-port PORT FRIENDLY-NAME\n");
  } catch (const ostra::hresult_error& error) {
    print(standard_stream::error,
          tfmt::format(L"The port cannot be registered ({0ub016xp})\n", error.code()));
  }
  return 1;
}
