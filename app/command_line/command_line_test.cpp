#include "app/command_line/command_line.h"

#include <gtest/gtest.h>

namespace Tamrin {
namespace {

using views = std::vector<std::wstring_view>;

struct CommandLine : testing::Test {
  CommandLine() {
    line.add_flag(L"verbose", L"v");
    line.add_flag(L"quiet");
    line.add_flag(L"same", L"same");
    line.add_valued(L"path").default_value = std::wstring_view(L"none");
    line.add_valued(L"item").multi_value = true;
    line.add_reference(L"path");
  }

  // The message of the error that parsing ends with, "" when there is none.
  std::string Error(const std::wstring& arguments) {
    try {
      line.parse(L"program " + arguments);
      return "";
    } catch (const cmd_line_syntax_error& error) {
      return error.what();
    }
  }

  command_line line;
};

TEST_F(CommandLine, Tokens) {
  const std::pair<const wchar_t*, views> rows[] = {
      {L"", {}},
      {L"  program  a  b ", {L"a", L"b"}},
      {L"\"C:\\My Files\\program.exe\" a", {L"a"}},
      {L"\"program\"a \"\" b", {L"a", L"", L"b"}},
      {L"program \"a b\"c", {L"a b", L"c"}},
      {L"program \"a\\\"b\" c", {L"a\\", L"b\"", L"c"}},
      {L"program a\"b c\"", {L"a\"b", L"c\""}},
  };
  for (const auto& [text, tokens] : rows) {
    line.parse(text);
    EXPECT_EQ(line.positional(), tokens) << text;
  }
}

TEST_F(CommandLine, OptionsAndTheirValues) {
  EXPECT_EQ(Error(L"x -v- --path \"a b\" y --quiet+ --item 1 --path --same -same --item -v"), "");
  EXPECT_TRUE(line.at(L"verbose").present && !line.at(L"verbose").flag());
  EXPECT_TRUE(line.at(L"quiet").flag() && line.at(L"same").flag() && line.completed());
  EXPECT_EQ(line.at(L"path").text(), L"--same");
  EXPECT_EQ(std::get<views>(line.at(L"item").value), (views{L"1", L"-v"}));
  EXPECT_EQ(line.positional(), (views{L"x", L"y"}));
  // The next parse forgets the one before.
  EXPECT_EQ(Error(L"--item 2 -v --quiet- --path"), "Command line argument's value is missing");
  EXPECT_FALSE(line.completed() || line.at(L"same").present || line.at(L"quiet").flag());
  EXPECT_EQ(Error(L"--item 3 --verbose"), "");
  EXPECT_TRUE(line.at(L"verbose").flag() && line.positional().empty());
  EXPECT_EQ(line.at(L"path").text(), L"none");
  EXPECT_EQ(std::get<views>(line.at(L"item").value), views{L"3"});
}

TEST_F(CommandLine, Errors) {
  for (const wchar_t* unknown : {L"--unknown", L"--Verbose", L"-verbose", L"--v", L"-quiet", L"-",
                                 L"--", L"-+", L"---", L"--quiet+-", L"--quiet --"})
    EXPECT_EQ(Error(unknown), "Invalid command line argument specified") << unknown;
  line.add_valued(L"needed").required = true;
  EXPECT_EQ(Error(L"--path needed"), "Missing required parameters");
  EXPECT_EQ(Error(L"--needed x"), "");
}

}  // namespace
}  // namespace Tamrin
