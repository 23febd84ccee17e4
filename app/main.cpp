#include <exception>
#include <string>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "app/console_host.h"
#include "app/options.h"
#include "app/screen_text.h"
#include "app/service_host.h"
#include "app/service_registration.h"
#include "app/version_info.h"
#include "format/format.h"
#include "platform/win32.h"
#include "settings/folder_creation_error.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

// The service's account may read its parameters' key but not create it, so the installation does.
DWORD create_parameters_key() {
  const auto version = read_product_version();
  const DWORD zero = 0;
  try {
    const auto folder = Tamrin::setman::open_parameters_folder(version.major, version.minor);
    folder->write_value(Tamrin::setman::kDummyName, &zero, sizeof zero);
    return ERROR_SUCCESS;
  } catch (const Tamrin::setman::folder_creation_error& error) {
    print_error(tfmt::format(L"Error creating the key of the service's parameters: {0b016xp}",
                             error.error()));
    return error.error();
  }
}

// A service that is installed already may still lack its key, when an earlier installation failed
// to create it: so an installation can be repeated until all is there.
int install() {
  const DWORD installed = install_service();
  if (installed != ERROR_SUCCESS && installed != ERROR_ALREADY_EXISTS)
    return static_cast<int>(installed);
  const DWORD key_error = create_parameters_key();
  return static_cast<int>(key_error == ERROR_SUCCESS ? installed : key_error);
}

int run(const Tamrin::command_line& options) {
  if (options.at(Tamrin::option_names::kHelp).present) {
    print_logo();
    print_help(options);
    return 0;
  }
  if (options.at(Tamrin::option_names::kInstallService).present)
    return install();
  if (options.at(Tamrin::option_names::kUninstallService).present) {
    return static_cast<int>(uninstall_service());
  }
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
  // Windows may load further libraries on its own: never from the program's folder.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  return tarnwheel::run_command_line();
}
