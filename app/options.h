// The server's command-line options and their values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line/command_line.h"

namespace Tamrin {

// Long names of the options.
namespace option_names {
inline constexpr wchar_t kHelp[] = L"help";
inline constexpr wchar_t kNoLogo[] = L"nologo";
inline constexpr wchar_t kSecurityDescriptor[] = L"security-descriptor";
inline constexpr wchar_t kSharePorts[] = L"share-ports";
inline constexpr wchar_t kNoDiscovery[] = L"no-discovery";
inline constexpr wchar_t kLogPath[] = L"log-path";
inline constexpr wchar_t kLogLevel[] = L"log-level";
inline constexpr wchar_t kNoScreenLog[] = L"no-screen-log";
inline constexpr wchar_t kInstallService[] = L"install-service";
inline constexpr wchar_t kUninstallService[] = L"uninstall-service";
}  // namespace option_names

// Registers all options, in the order in which the help shows them.
void add_server_options(command_line& line);

// COM port numbers from the value of share-ports ("3,1,2"), ascending, duplicates kept. Numbers are
// not range-checked: they wrap at 32 bits, and a missing one is 0. A last number that is 0 or
// missing is ignored. Throws cmd_line_syntax_error at any character other than a digit or a comma.
[[nodiscard]] std::vector<std::uint32_t> parse_port_list(std::wstring_view value);

// The level of a keyword: critical 0, error 1, warning 2, info 3, debug 4. Throws
// cmd_line_syntax_error for any other word.
[[nodiscard]] std::int32_t parse_log_level(std::wstring_view keyword);

// The values of the options, for a server in a console or for an installation.
struct server_options {
  std::int32_t log_level = 0;
  std::wstring log_path;  // empty for no log file
  bool screen_log = true;
  std::wstring security_descriptor;
  bool discovery = true;
  std::vector<std::uint32_t> shared_ports;  // empty for all
};

// The values given on the parsed command line, or their defaults. Throws cmd_line_syntax_error for
// an invalid one; the log level is checked first.
[[nodiscard]] server_options read_server_options(const command_line& line);

}  // namespace Tamrin
