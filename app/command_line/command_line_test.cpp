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

  void Parse(const std::wstring& arguments) { line.parse(L"program " + arguments); }

  // The message of the error that parsing ends with, "" when there is none.
  std::string Error(const std::wstring& arguments) {
    try {
      Parse(arguments);
      return "";
    } catch (const cmd_line_syntax_error& error) {
      return error.what();
    }
  }

  command_line line;
};

TEST_F(CommandLine, Tokens) {
  const struct {
    const wchar_t* text;
    views tokens;
  } rows[] = {
      {L"program", {}},
      {L"  program  a  b ", {L"a", L"b"}},
      {L"\"C:\\My Files\\program.exe\" a", {L"a"}},
      {L"\"program\"a", {L"a"}},
      {L"program \"a b\"c", {L"a b", L"c"}},
      {L"program \"a\\\"b\" c", {L"a\\", L"b\"", L"c"}},
      {L"program a\"b c\"", {L"a\"b", L"c\""}},
      {L"program \"\" a", {L"", L"a"}},
  };
  for (const auto& row : rows) {
    line.parse(row.text);
    EXPECT_EQ(line.positional(), row.tokens) << row.text;
    EXPECT_TRUE(line.completed());
  }
}

TEST_F(CommandLine, Flags) {
  const struct {
    const wchar_t* arguments;
    const wchar_t* name;
    bool value;
  } rows[] = {
      {L"--verbose", L"verbose", true}, {L"-v", L"verbose", true},      {L"-v-", L"verbose", false},
      {L"--quiet+", L"quiet", true},    {L"--quiet-", L"quiet", false}, {L"-same", L"same", true},
  };
  for (const auto& row : rows) {
    Parse(row.arguments);
    EXPECT_TRUE(line.at(row.name).present) << row.arguments;
    EXPECT_EQ(line.at(row.name).flag(), row.value) << row.arguments;
  }
}

TEST_F(CommandLine, Values) {
  Parse(L"x --path \"a b\" y --item 1 --path --quiet --item -v");
  EXPECT_EQ(line.at(L"path").text(), L"--quiet");
  EXPECT_EQ(std::get<views>(line.at(L"item").value), (views{L"1", L"-v"}));
  EXPECT_EQ(line.positional(), (views{L"x", L"y"}));
  EXPECT_FALSE(line.at(L"quiet").present || line.at(L"verbose").present);
}

TEST_F(CommandLine, NextParseForgetsTheOneBefore) {
  Parse(L"--quiet --path a --item 1 b");
  EXPECT_NE(Error(L"--item 2 --path"), "");
  EXPECT_FALSE(line.completed() || line.at(L"quiet").present);
  Parse(L"--item 3");
  EXPECT_EQ(line.at(L"path").text(), L"none");
  EXPECT_EQ(std::get<views>(line.at(L"item").value), views{L"3"});
  EXPECT_TRUE(line.completed() && line.positional().empty());
}

TEST_F(CommandLine, Errors) {
  for (const wchar_t* unknown : {L"--unknown", L"--Verbose", L"-verbose", L"--v", L"-quiet", L"-",
                                 L"--", L"-+", L"---", L"--quiet+-", L"--quiet --"}) {
    EXPECT_EQ(Error(unknown), "Invalid command line argument specified") << unknown;
  }
  EXPECT_EQ(Error(L"--path"), "Command line argument's value is missing");
  line.add_valued(L"needed").required = true;
  EXPECT_EQ(Error(L"--path needed"), "Missing required parameters");
  EXPECT_FALSE(line.completed());
  EXPECT_EQ(Error(L"--needed x"), "");
}

}  // namespace
}  // namespace Tamrin
