#include "app/options.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "app/command_line/command_line_help.h"
#include "format/format.h"

namespace Tamrin {
namespace {

TEST(CommandLineHelp, OfTheServerIsWhatItsPageShows) {
  std::ifstream file(TARNWHEEL_ADMINISTRATION_PAGE);
  const std::string page(std::istreambuf_iterator<char>(file), {});
  command_line line;
  add_server_options(line);
  const std::wstring help = format_help(line, 150);  // where nothing is wrapped
  const std::string shown(help.begin(), help.end());
  EXPECT_NE(page.find("```text\n" + shown + "```"), std::string::npos) << shown;
}

// With one option whose names take 7 characters the description starts at column 15.
TEST(CommandLineHelp, Wrapping) {
  constexpr std::size_t kNarrowest = 31;  // leaves the description 16 columns, the fewest
  const struct {
    std::size_t console_width;
    const wchar_t* description;
    std::wstring wrapped;  // "/" is an end of line with the next one's indentation
  } rows[] = {
      {kNarrowest, L"aaaa bbbb cccc ", L"aaaa bbbb cccc "},
      // A line is shorter than the column is wide.
      {kNarrowest, L"aaaa bbbb cccc d", L"aaaa bbbb cccc/d"},
      {kNarrowest + 1, L"aaaa bbbb cccc d", L"aaaa bbbb cccc d"},
      // Below the fewest columns there are 20, whatever the console shows.
      {kNarrowest - 1, L"aaaa bbbb cccc dddd", L"aaaa bbbb cccc dddd"},
      {0, L"aaaa bbbb cccc ddddd", L"aaaa bbbb cccc/ddddd"},
      {kNarrowest, L"aaaa bbbb ccc  d", L"aaaa bbbb ccc/ d"},  // the second space stays
      {kNarrowest, L"aa abcdefghijklmnopqrst b", L"aa/abcdefghijklmnopqrst/b"},
      {kNarrowest, L"aaaa bbbb cccc d\n\ne\n", L"aaaa bbbb cccc/d//e"},
  };
  for (const auto& row : rows) {
    command_line line;
    line.add_flag(L"a", L"x");
    line.add_reference(L"a").description = row.description;  // which has the names of its option
    const std::wstring help = format_help(line, row.console_width);
    EXPECT_EQ(std::regex_replace(help, std::wregex(L"\n {15}"), L"/"),
              L"    -x, --a    \n    -x, --a    " + row.wrapped + L"\n");
  }
  command_line line;
  line.add_reference(L"nowhere");
  EXPECT_THROW(static_cast<void>(format_help(line, 80)), cmd_line_syntax_error);
}

TEST(ServerOptions, ValuesAndDefaults) {
  command_line line;
  add_server_options(line);
  const auto values = [&line](const std::wstring& arguments) {
    line.parse(L"server.exe " + arguments);
    const auto read = read_server_options(line);
    std::wstring text =
        tfmt::format(L"{0}|{1}|{2}{3?<} screen{3?>}{4?<} discovery{4?>}", read.security_descriptor,
                     read.log_path, read.log_level, read.screen_log, read.discovery);
    for (const auto port : read.shared_ports)
      text += tfmt::format(L" {0}", port);
    return text;
  };
  EXPECT_EQ(values(L"--no-discovery"), L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)||3 screen");
  EXPECT_EQ(
      values(L"--security-descriptor D: --log-path \"C:\\Log Files\\x.log\" --log-level debug "
             L"--share-ports 3,1,2 --no-screen-log"),
      L"D:|C:\\Log Files\\x.log|4 discovery 1 2 3");
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
