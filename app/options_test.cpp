#include "app/options.h"

#include <gtest/gtest.h>

#include "app/command_line/command_line_help.h"

namespace Tamrin {
namespace {

// At a width at which nothing is wrapped.
constexpr std::wstring_view kHelp =
    LR"(
    -?, --help                                 Display command-line parameters.
    --nologo                                   Do not display the logo message.

=== Server parameters ===
    --security-descriptor SDDL                 Listening security descriptor in SDDL.
    --share-ports N1[,N2[,N3...]]]             Only share the given ports. If omitted, all ports are shared.
    --no-discovery                             Disable auto-discovery.

=== Logging ===
    --log-path path                            Full path to log file. Ignored in service mode.
    --log-level LOGGING-LEVEL                  Set default logging level. LOGGING-LEVEL is one of the following:
                                                 critical - only critical errors
                                                 error    - all errors
                                                 warnings - errors and warnings
                                                 info     - informational messages
                                                 debug    - maximum information for debugging
                                               Default value is "info"
    --no-screen-log                            Prevent copy of log to be shown on the screen. Ignored in service mode.

=== Service operations ===
    -install-service, --install-service        Install service.
    -uninstall-service, --uninstall-service    Uninstall service.
)";

TEST(ServerOptions, HelpValuesAndDefaults) {
  command_line line;
  add_server_options(line);
  EXPECT_EQ(format_help(line, 150), kHelp.substr(1));

  const auto values = [&line](const std::wstring& arguments) {
    line.parse(L"server.exe " + arguments);
    const auto read = read_server_options(line);
    std::wstring text = read.security_descriptor + L'|' + read.log_path + L'|';
    text += std::to_wstring(read.log_level) + (read.screen_log ? L" screen" : L"") +
            (read.discovery ? L" discovery" : L"");
    for (const auto port : read.shared_ports)
      text += L' ' + std::to_wstring(port);
    for (const wchar_t* flag : {L"help", L"nologo", L"install-service", L"uninstall-service"})
      text += line.at(flag).flag() ? flag : L"";
    return text;
  };
  EXPECT_EQ(values(L"--no-discovery"), L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)||3 screen");
  EXPECT_EQ(
      values(L"--security-descriptor D: --log-path \"C:\\Log Files\\x.log\" --log-level debug "
             L"--share-ports 3,1,2 --no-screen-log -? -install-service --nologo"),
      L"D:|C:\\Log Files\\x.log|4 discovery 1 2 3helpnologoinstall-service");
}

TEST(ServerOptions, PortListsAndLevels) {
  const std::pair<const wchar_t*, std::vector<std::uint32_t>> rows[] = {
      {L"", {}},
      {L"5,", {5}},
      {L"0", {}},
      {L",7", {0, 7}},
      {L"10,,9,10", {0, 9, 10, 10}},
      {L"4294967295,4294967298", {2, 4294967295}}};
  for (const auto& [value, ports] : rows)
    EXPECT_EQ(parse_port_list(value), ports) << value;
  for (const wchar_t* value : {L"1;2", L"1, 2", L"-1", L"COM1", L"1/", L"1:", L"\u0661"})
    EXPECT_THROW((void)parse_port_list(value), cmd_line_syntax_error) << value;
  std::int32_t level = 0;
  for (const wchar_t* keyword : {L"critical", L"error", L"warning", L"info", L"debug"})
    EXPECT_EQ(parse_log_level(keyword), level++);
  for (const wchar_t* keyword : {L"warnings", L"Info", L""})
    EXPECT_THROW((void)parse_log_level(keyword), cmd_line_syntax_error) << keyword;
}

}  // namespace
}  // namespace Tamrin
