#include <exception>
#include <string>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "app/console_host.h"
#include "app/options.h"
#include "app/screen_text.h"
#include "app/service_host.h"
#include "app/service_parameters.h"
#include "app/service_registration.h"
#include "platform/win32.h"

namespace tarnwheel {
namespace {

// A service that is installed already may lack its parameters, if an earlier installation failed to
// write them, so an installation can be repeated until it is complete. Nothing is installed when a
// value is invalid.
int install(const Tamrin::command_line& line) {
  const auto options = Tamrin::read_server_options(line);
  const DWORD unusable = check_descriptor(options);
  if (unusable != ERROR_SUCCESS)
    return static_cast<int>(unusable);
  const DWORD installed = install_service();
  if (installed != ERROR_SUCCESS && installed != ERROR_ALREADY_EXISTS)
    return static_cast<int>(installed);
  const DWORD failed = install_parameters(line, options);
  return static_cast<int>(failed == ERROR_SUCCESS ? installed : failed);
}

int run(const Tamrin::command_line& options) {
  if (options.at(Tamrin::option_names::kHelp).present) {
    print_logo();
    print_help(options);
    return 0;
  }
  if (options.at(Tamrin::option_names::kInstallService).present)
    return install(options);
  if (options.at(Tamrin::option_names::kUninstallService).present)
    return static_cast<int>(uninstall_service());
  const DWORD service_error = run_service();
  if (service_error != ERROR_FAILED_SERVICE_CONTROLLER_CONNECT)
    return 0;
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
  // Libraries that Windows loads on its own must never come from the program's folder.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  return tarnwheel::run_command_line();
}
