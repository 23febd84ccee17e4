#include "app/options.h"

#include <algorithm>
#include <array>

#include "settings/default_access.h"

namespace Tamrin {
namespace {

constexpr wchar_t kLogLevelDescription[] =
    L"Set default logging level. LOGGING-LEVEL is one of the following:\n"
    L"  critical - only critical errors\n"
    L"  error    - all errors\n"
    L"  warnings - errors and warnings\n"
    L"  info     - informational messages\n"
    L"  debug    - maximum information for debugging\n"
    L"Default value is \"info\"";

// Indexed by level.
constexpr std::array<std::wstring_view, 5> kLevelKeywords = {L"critical", L"error", L"warning",
                                                             L"info", L"debug"};

void add_server_parameters(command_line& line) {
  auto& security = line.add_valued(option_names::kSecurityDescriptor);
  security.value_name = L"SDDL";
  security.default_value = setman::kDefaultSecurityDescriptor;
  security.group_header = L"=== Server parameters ===";
  security.description = L"Listening security descriptor in SDDL.";

  auto& ports = line.add_valued(option_names::kSharePorts);
  ports.value_name = L"N1[,N2[,N3...]]]";
  ports.description = L"Only share the given ports. If omitted, all ports are shared.";

  line.add_flag(option_names::kNoDiscovery).description = L"Disable auto-discovery.";
}

void add_logging(command_line& line) {
  auto& path = line.add_valued(option_names::kLogPath);
  path.value_name = L"path";
  path.default_value = std::wstring_view();
  path.group_header = L"=== Logging ===";
  path.description = L"Full path to log file. Ignored in service mode.";

  auto& level = line.add_valued(option_names::kLogLevel);
  level.value_name = L"LOGGING-LEVEL";
  level.default_value = std::wstring_view(L"info");
  level.description = kLogLevelDescription;

  line.add_flag(option_names::kNoScreenLog).description =
      L"Prevent copy of log to be shown on the screen. Ignored in service mode.";
}

void add_service_operations(command_line& line) {
  using namespace option_names;
  auto& install = line.add_flag(kInstallService, kInstallService);
  install.group_header = L"=== Service operations ===";
  install.description = L"Install service.";
  line.add_flag(kUninstallService, kUninstallService).description = L"Uninstall service.";
}

}  // namespace

void add_server_options(command_line& line) {
  line.add_flag(option_names::kHelp, L"?").description = L"Display command-line parameters.";
  line.add_flag(option_names::kNoLogo).description = L"Do not display the logo message.";
  add_server_parameters(line);
  add_logging(line);
  add_service_operations(line);
}

std::vector<std::uint32_t> parse_port_list(std::wstring_view value) {
  std::vector<std::uint32_t> ports;
  std::uint32_t number = 0;
  for (const wchar_t character : value) {
    if (character >= L'0' && character <= L'9') {
      number = number * 10 + static_cast<std::uint32_t>(character - L'0');
    } else if (character == L',') {
      ports.push_back(number);
      number = 0;
    } else {
      throw cmd_line_syntax_error("Invalid format for --share-ports parameter.");
    }
  }
  if (number != 0)
    ports.push_back(number);
  std::ranges::sort(ports);
  return ports;
}

std::int32_t parse_log_level(std::wstring_view keyword) {
  const auto found = std::ranges::find(kLevelKeywords, keyword);
  if (found == kLevelKeywords.end())
    throw cmd_line_syntax_error("Invalid logging level specified.");
  return static_cast<std::int32_t>(found - kLevelKeywords.begin());
}

server_options read_server_options(const command_line& line) {
  using namespace option_names;
  server_options options;
  options.log_level = parse_log_level(line.at(kLogLevel).text());
  options.log_path = line.at(kLogPath).text();
  options.screen_log = !line.at(kNoScreenLog).flag();
  options.security_descriptor = line.at(kSecurityDescriptor).text();
  options.discovery = !line.at(kNoDiscovery).flag();
  if (const command_line_option& ports = line.at(kSharePorts); ports.present)
    options.shared_ports = parse_port_list(ports.text());
  return options;
}

}  // namespace Tamrin
