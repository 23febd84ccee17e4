#include "app/options.h"

#include <gtest/gtest.h>

#include "app/command_line/command_line_help.h"

namespace Tamrin {
namespace {

struct ServerOptions : testing::Test {
  ServerOptions() { add_server_options(line); }
  void Parse(const std::wstring& arguments) { line.parse(L"server.exe " + arguments); }
  command_line line;
};

// The longest names take 39 columns, so descriptions start at column 47 and their lines have at
// most 32 characters.
constexpr std::wstring_view kHelpAt80Columns =
    LR"(
    -?, --help                                 Display command-line parameters.
    --nologo                                   Do not display the logo message.

=== Server parameters ===
    --security-descriptor SDDL                 Listening security descriptor in
                                               SDDL.
    --share-ports N1[,N2[,N3...]]]             Only share the given ports. If
                                               omitted, all ports are shared.
    --no-discovery                             Disable auto-discovery.

=== Logging ===
    --log-path path                            Full path to log file. Ignored
                                               in service mode.
    --log-level LOGGING-LEVEL                  Set default logging level.
                                               LOGGING-LEVEL is one of the
                                               following:
                                                 critical - only critical
                                               errors
                                                 error    - all errors
                                                 warnings - errors and warnings
                                                 info     - informational
                                               messages
                                                 debug    - maximum information
                                               for debugging
                                               Default value is "info"
    --no-screen-log                            Prevent copy of log to be shown
                                               on the screen. Ignored in
                                               service mode.

=== Service operations ===
    -install-service, --install-service        Install service.
    -uninstall-service, --uninstall-service    Uninstall service.
)";

TEST_F(ServerOptions, HelpAt80Columns) {
  EXPECT_EQ(format_help(line, 80), kHelpAt80Columns.substr(1));
}

TEST_F(ServerOptions, ValuesAndDefaults) {
  Parse(L"");
  const auto defaults = read_server_options(line);
  EXPECT_EQ(defaults.security_descriptor, L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)");
  EXPECT_TRUE(defaults.log_path.empty() && defaults.log_level == 3);
  EXPECT_TRUE(defaults.screen_log && defaults.discovery && defaults.shared_ports.empty());

  Parse(
      L"--security-descriptor D: --log-path \"C:\\Log Files\\x.log\" --log-level debug "
      L"--share-ports 3,1,2 --no-discovery --no-screen-log -? -install-service --nologo");
  const auto given = read_server_options(line);
  EXPECT_EQ(given.security_descriptor, L"D:");
  EXPECT_EQ(given.log_path, L"C:\\Log Files\\x.log");
  EXPECT_EQ(given.log_level, 4);
  EXPECT_FALSE(given.screen_log || given.discovery);
  EXPECT_EQ(given.shared_ports, (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_TRUE(line.at(option_names::kHelp).flag() && line.at(option_names::kNoLogo).flag());
  EXPECT_TRUE(line.at(option_names::kInstallService).flag());
}

// The message of the error that `call` throws, "" when there is none.
template <class Call>
std::string error_of(Call call) {
  try {
    (void)call();
    return "";
  } catch (const cmd_line_syntax_error& error) {
    return error.what();
  }
}

TEST(PortList, NumbersAndNothingElse) {
  const struct {
    const wchar_t* value;
    std::vector<std::uint32_t> ports;
  } rows[] = {
      {L"", {}},
      {L"5,", {5}},
      {L"0", {}},
      {L"0,", {0}},
      {L",7", {0, 7}},
      {L"10,,9,10", {0, 9, 10, 10}},
      {L"4294967295,4294967298", {2, 4294967295}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(parse_port_list(row.value), row.ports) << row.value;
  for (const wchar_t* value : {L"1;2", L"1, 2", L"-1", L"COM1", L"1/", L"1:", L"\u0661"}) {
    EXPECT_EQ(error_of([&] { return parse_port_list(value); }),
              "Invalid format for --share-ports parameter.")
        << value;
  }
}

TEST(LogLevel, Keywords) {
  std::int32_t level = 0;
  for (const wchar_t* keyword : {L"critical", L"error", L"warning", L"info", L"debug"})
    EXPECT_EQ(parse_log_level(keyword), level++);
  for (const wchar_t* keyword : {L"warnings", L"Info", L""}) {
    EXPECT_EQ(error_of([&] { return parse_log_level(keyword); }),
              "Invalid logging level specified.")
        << keyword;
  }
}

}  // namespace
}  // namespace Tamrin
