#include "app/command_line/command_line.h"

#include <gtest/gtest.h>

#include "app/command_line/numbers.h"
#include "format/format.h"

namespace Tamrin {
namespace {

// "verbose same path item item | word | word", or the error message.
std::wstring Parsed(command_line& line, const std::wstring& text) {
  try {
    line.parse(text);
  } catch (const cmd_line_syntax_error& error) {
    EXPECT_FALSE(line.completed());
    const std::string_view message = error.what();
    return std::wstring(message.begin(), message.end());
  }
  EXPECT_TRUE(line.completed());
  std::wstring parsed =
      tfmt::format(L"{0?<}verbose {0?>}{1?<}same {1?>}{2}", line.at(L"verbose").flag(),
                   line.at(L"same").flag(), line.at(L"path").text());
  if (const auto& items = line.at(L"item"); items.present) {
    for (const auto item : std::get<std::vector<std::wstring_view>>(items.value))
      parsed.append(L" ").append(item);
  }
  for (const auto word : line.positional())
    parsed.append(L" | ").append(word);
  return parsed;
}

TEST(CommandLine, TokensOptionsAndTheirValues) {
  command_line line;
  line.add_flag(L"verbose", L"v");
  line.add_flag(L"same", L"same");
  line.add_valued(L"path").default_value = std::wstring_view(L"none");
  line.add_valued(L"item").multi_value = true;
  line.add_reference(L"path");
  const std::pair<const wchar_t*, std::wstring_view> rows[] = {
      {L"", L"none"},
      {L"  program  a  b ", L"none | a | b"},
      {L"\"C:\\My Files\\program.exe\"a", L"none | a"},
      {L"program \"\" \"a b\"c", L"none |  | a b | c"},
      {L"program \"a\\\"b\" c a\"b c\"", L"none | a\\ | b\" | c | a\"b | c\""},
      {L"program x -v- --path \"a b\" y --item 1 --path --same -same --item -v",
       L"same --same 1 -v | x | y"},
      {L"program -v --same- --verbose+ --path", L"Command line argument's value is missing"},
      {L"program --item 3 --verbose", L"verbose none 3"},  // with nothing left of the last parse
  };
  for (const auto& [text, parsed] : rows)
    EXPECT_EQ(Parsed(line, text), parsed) << text;
  for (const wchar_t* unknown :
       {L"--Verbose", L"-verbose", L"--v", L"-", L"--", L"-+", L"--same+-"})
    EXPECT_EQ(Parsed(line, L"program " + std::wstring(unknown)),
              L"Invalid command line argument specified");
  line.add_valued(L"needed").required = true;
  EXPECT_EQ(Parsed(line, L"program --path needed"), L"Missing required parameters");
  EXPECT_EQ(Parsed(line, L"program --needed x"), L"none");
}

TEST(Numbers, Ports) {
  for (const wchar_t* text : {L"COM5", L"com5", L"5", L"005"})
    EXPECT_EQ(parse_port(text), 5u) << text;
  EXPECT_EQ(parse_port(L"4294967295"), ~0u);
  for (const wchar_t* text : {L"", L"COM", L"COM0", L"COM5x", L"COM 5", L"-5", L"LPT1", L"COMCOM5",
                              L"4294967296", L"18446744073709551621", L"COM\xFF15"})
    EXPECT_THROW(static_cast<void>(parse_port(text)), cmd_line_syntax_error) << text;
}

}  // namespace
}  // namespace Tamrin
