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
  const std::wstring help = format_help(line, 150);  // so wide that nothing is wrapped
  const std::string shown(help.begin(), help.end());
  EXPECT_NE(page.find("```text\n" + shown + "```"), std::string::npos) << shown;
}

// The option's names take 7 characters, so the description starts at column 15. If the console
// leaves it fewer than 16 columns, it gets 20. A line is shorter than that width unless it is one
// long word.
TEST(CommandLineHelp, Wrapping) {
  constexpr std::size_t kNarrowest = 31;
  const std::wregex break_mark(L"/");
  const std::pair<std::size_t, std::wstring> rows[] = {
      {kNarrowest, L"aaaa bbbb cccc "},  // "/" is a space at which a line must end
      {kNarrowest, L"aaaa bbbb cccc/d"},        {kNarrowest + 1, L"aaaa bbbb cccc d"},
      {kNarrowest - 1, L"aaaa bbbb cccc dddd"}, {0, L"aaaa bbbb cccc/ddddd"},
      {kNarrowest, L"aaaa bbbb ccc/ d"},        {kNarrowest, L"aa/abcdefghijklmnopqrst/b"},
      {kNarrowest, L"aaaa bbbb cccc/d\n\ne"},
  };
  for (const auto& [console_width, text] : rows) {
    const auto with = [&](const wchar_t* end) { return std::regex_replace(text, break_mark, end); };
    command_line line;
    line.add_flag(L"a", L"x");
    line.add_reference(L"a").description = with(L" ") + L"\n";  // shows its target's names
    const std::wstring help = format_help(line, console_width);
    EXPECT_EQ(std::regex_replace(help, std::wregex(L"\n {15}"), L"\n"),
              L"    -x, --a    \n    -x, --a    " + with(L"\n") + L"\n");
  }
}

TEST(ServerOptions, Defaults) {
  command_line line;
  add_server_options(line);
  line.parse(L"server.exe");
  const auto read = read_server_options(line);
  EXPECT_EQ(
      tfmt::format(L"{0}|{1}|{2}{3?<} screen{3?>}{4?<} discovery{4?>}", read.security_descriptor,
                   read.log_path, read.log_level, read.screen_log, read.discovery),
      L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)||3 screen discovery");
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
  for (const wchar_t* value : {L"1, 2", L"-1", L"COM1", L"1/", L"1:", L"\u0661"})
    EXPECT_THROW((void)parse_port_list(value), cmd_line_syntax_error) << value;
  std::int32_t level = 0;
  for (const wchar_t* keyword : {L"critical", L"error", L"warning", L"info", L"debug"})
    EXPECT_EQ(parse_log_level(keyword), level++);
}

}  // namespace
}  // namespace Tamrin
