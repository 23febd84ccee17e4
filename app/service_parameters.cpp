#include "app/service_parameters.h"

#include <cstdint>
#include <string>

#include "app/event_log.h"
#include "app/screen_text.h"
#include "app/version_info.h"
#include "async/errors.h"
#include "format/format.h"
#include "rpc/security_descriptor.h"
#include "settings/folder_creation_error.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

namespace setman = Tamrin::setman;
namespace names = Tamrin::option_names;

// Relative paths are resolved now: the service has another current folder.
std::wstring full_path(const std::wstring& path) {
  std::wstring full(32768, L'\0');
  const DWORD size =
      ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  full.resize(size < full.size() ? size : 0);
  return full.empty() ? path : full;
}

bool write_number(setman::abstract_folder& folder, const wchar_t* name, std::int32_t number) {
  return folder.write_value(name, &number, sizeof number);
}

bool write_given(setman::abstract_folder& folder, const Tamrin::command_line& line,
                 const Tamrin::server_options& options) {
  const auto given = [&line](const wchar_t* name) { return line.at(name).present; };
  bool written = true;
  if (given(names::kSecurityDescriptor))
    written &= folder.write_string(setman::kSecurityDescriptorName, options.security_descriptor);
  if (given(names::kSharePorts))
    written &= SUCCEEDED(setman::write_shared_ports(folder, options.shared_ports));
  if (given(names::kNoDiscovery))
    written &= write_number(folder, setman::kAutoDiscoveryName, options.discovery ? 1 : 0);
  if (given(names::kLogPath))
    written &= folder.write_string(setman::kLogPathName, full_path(options.log_path));
  if (given(names::kLogLevel))
    written &= write_number(folder, setman::kLogLevelName, options.log_level);
  return written;
}

}  // namespace

DWORD check_descriptor(const Tamrin::server_options& options) {
  try {
    static_cast<void>(tether::security_descriptor::from_sddl(options.security_descriptor));
    return ERROR_SUCCESS;
  } catch (const ostra::hresult_error& error) {
    print_error(tfmt::format(L"Error: Invalid security descriptor specified: \"{0}\" ({1ub016xp})",
                             options.security_descriptor, error.code()));
    return static_cast<DWORD>(error.code());
  }
}

DWORD install_parameters(const Tamrin::command_line& line, const Tamrin::server_options& options) {
  if (const DWORD error = register_event_source(); error != ERROR_SUCCESS)
    return report_error(L"Error registering the service's events: {0b016xp}", error);
  const auto version = read_product_version();
  try {
    const auto folder = setman::open_parameters_folder(version.major, version.minor);
    const std::uint32_t zero = 0;
    folder->write_value(setman::kDummyName, &zero, sizeof zero);
    return write_given(*folder, line, options)
               ? ERROR_SUCCESS
               : report_error(L"Error writing the service's parameters: {0b016xp}",
                              ERROR_CANTWRITE);
  } catch (const setman::folder_creation_error& error) {
    return report_error(L"Error creating the key of the service's parameters: {0b016xp}",
                        error.error());
  }
}

}  // namespace tarnwheel
