#include <exception>
#include <string>

#include "app/cmd_line_syntax_error.h"
#include "app/command_line.h"
#include "app/console_host.h"
#include "app/options.h"
#include "app/screen_text.h"
#include "format/format.h"
#include "platform/win32.h"

namespace tarnwheel {
namespace {

int run(const Tamrin::command_line& options) {
  if (options.at(Tamrin::option_names::kHelp).present) {
    print_logo();
    print_help(options);
    return 0;
  }
  return run_console_server(options);
}

int run_command_line() {
  Tamrin::command_line options;
  Tamrin::add_server_options(options);
  try {
    options.parse(::GetCommandLineW());
    return run(options);
  } catch (const Tamrin::cmd_line_syntax_error& error) {
    print_help(options);
    const std::string message = error.what();
    print_error(L"Error: " + std::wstring(message.begin(), message.end()));
    return 0;
  }
}

}  // namespace
}  // namespace tarnwheel

int main() {
  return tarnwheel::run_command_line();
}
