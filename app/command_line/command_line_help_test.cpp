#include "app/command_line/command_line_help.h"

#include <gtest/gtest.h>

#include <regex>

namespace Tamrin {
namespace {

// With one option whose names take 7 characters the description starts at column 15.
constexpr std::size_t kNarrowest = 31;  // leaves the description 16 columns, the fewest

TEST(CommandLineHelp, Wrapping) {
  const struct {
    std::size_t console_width;
    const wchar_t* description;
    const wchar_t* wrapped;  // "/" is an end of line with the next one's indentation
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
    line.add_flag(L"a", L"x").description = row.description;
    const std::wstring help = format_help(line, row.console_width);
    EXPECT_EQ(std::regex_replace(help, std::wregex(L"\n {15}"), L"/"),
              L"    -x, --a    " + std::wstring(row.wrapped) + L"\n");
  }
}

TEST(CommandLineHelp, ReferenceHasTheNamesOfItsOption) {
  command_line line;
  line.add_valued(L"path").value_name = L"FILE";
  line.add_reference(L"path").description = L"Again.";
  EXPECT_EQ(format_help(line, 80), L"    --path FILE    \n    --path FILE    Again.\n");
  line.add_reference(L"nowhere");
  EXPECT_THROW((void)format_help(line, 80), cmd_line_syntax_error);
}

}  // namespace
}  // namespace Tamrin
