#include "app/command_line/command_line_help.h"

#include <gtest/gtest.h>

namespace Tamrin {
namespace {

// With one option whose names take 7 characters the description starts at column 15.
constexpr wchar_t kNames[] = L"    -x, --a    ";
const std::wstring kNextLine = L"\n" + std::wstring(15, L' ');
constexpr std::size_t kNarrowest = 31;  // leaves the description 16 columns, the fewest

std::wstring Help(const std::wstring& description, std::size_t console_width) {
  command_line line;
  line.add_flag(L"a", L"x").description = description;
  return format_help(line, console_width);
}

TEST(CommandLineHelp, Wrapping) {
  const struct {
    const wchar_t* description;
    std::size_t console_width;
    std::wstring wrapped;
  } rows[] = {
      {L"aaaa bbbb cccc ", kNarrowest, L"aaaa bbbb cccc \n"},
      // A line is shorter than the column is wide.
      {L"aaaa bbbb cccc d", kNarrowest, L"aaaa bbbb cccc" + kNextLine + L"d\n"},
      {L"aaaa bbbb cccc d", kNarrowest + 1, L"aaaa bbbb cccc d\n"},
      // Below the fewest columns there are 20, whatever the console shows.
      {L"aaaa bbbb cccc dddd", kNarrowest - 1, L"aaaa bbbb cccc dddd\n"},
      {L"aaaa bbbb cccc ddddd", 0, L"aaaa bbbb cccc" + kNextLine + L"ddddd\n"},
      // The second of two spaces at a break stays.
      {L"aaaa bbbb ccc  d", kNarrowest, L"aaaa bbbb ccc" + kNextLine + L" d\n"},
      {L"aa abcdefghijklmnopqrst b", kNarrowest,
       L"aa" + kNextLine + L"abcdefghijklmnopqrst" + kNextLine + L"b\n"},
      {L"aaaa bbbb cccc d\ne", kNarrowest,
       L"aaaa bbbb cccc" + kNextLine + L"d" + kNextLine + L"e\n"},
      {L"a\n\nb\n", kNarrowest, L"a" + kNextLine + kNextLine + L"b\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Help(row.description, row.console_width), kNames + row.wrapped) << row.description;
  }
}

TEST(CommandLineHelp, ReferencesAndOptionsWithoutAName) {
  command_line line;
  EXPECT_EQ(format_help(line, 80), L"");
  line.add_valued(L"path").value_name = L"FILE";
  line.add_valued(L"mute");
  line.add_flag(L"", L"s");
  line.add_reference(L"path").description = L"Again.";
  EXPECT_EQ(format_help(line, 80),
            L"    --path FILE    \n    --mute         \n    -s             \n"
            L"    --path FILE    Again.\n");
  line.add_reference(L"nowhere");
  EXPECT_THROW((void)format_help(line, 80), cmd_line_syntax_error);
}

}  // namespace
}  // namespace Tamrin
