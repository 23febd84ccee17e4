#include "client/verbs/client_options.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <sstream>

#include "app/command_line/cmd_line_syntax_error.h"
#include "client/line/line_settings.h"
#include "client/verbs/json.h"

namespace tarnwheel::client {
namespace {

// Reads a whole command line as the program does, without running anything.
struct ClientOptions : testing::Test {
  void Parse(const std::wstring& arguments) {
    const auto words = Tamrin::split(L"client " + arguments);
    chosen = &verb_named(words.size() > 1 ? words[1] : L"");
    line.emplace();
    add_options_of(*chosen, *line);
    line->parse(L"client " + arguments);
    words_behind = arguments_of(*chosen, *line);
  }

  // Rate, data bits, parity, stop bits and flow control, as a driver numbers them.
  std::string Line(const std::wstring& arguments) {
    Parse(L"send . COM5 x " + arguments);
    const auto [rate, control, flow] = address_of({words_behind, *line}).settings;
    std::ostringstream text;
    text << rate.BaudRate << ' ' << int{control.WordLength} << ' ' << int{control.Parity} << ' '
         << int{control.StopBits} << ' ' << static_cast<int>(flow);
    return text.str();
  }

  // What `send` sends, a character a byte.
  std::string Message(const std::wstring& arguments) {
    Parse(L"send . COM5 " + arguments);
    const auto bytes = message_of({words_behind, *line});
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  // What is wrong with it.
  std::wstring Error(const std::wstring& arguments) {
    try {
      Parse(arguments);
      if (chosen->run == &send_text) {
        static_cast<void>(address_of({words_behind, *line}));
        static_cast<void>(message_of({words_behind, *line}));
        static_cast<void>(waiting_limit_of(*line));
      }
      return L"";
    } catch (const Tamrin::cmd_line_syntax_error& error) {
      return mistake_in(error);
    }
  }

  const verb* chosen = nullptr;
  std::optional<Tamrin::command_line> line;
  std::span<const std::wstring_view> words_behind;
};

TEST_F(ClientOptions, LineAndItsDefaults) {
  EXPECT_EQ(Line(L""), "115200 8 0 0 0");
  EXPECT_EQ(Line(L"--baud 300 --data 5 --parity mark --stop 1.5 --flow xonxoff"), "300 5 3 1 2");
  EXPECT_EQ(waiting_limit_of(*line), std::chrono::milliseconds(2000));
}

TEST_F(ClientOptions, MessageWithItsLineEnd) {
  EXPECT_EQ(Message(L"a\\r --eol crlf"), "a\\r\r\n");
  EXPECT_EQ(Message(L"\xE9\\x0a\\xFE\\\\n\\r\\t --escapes"), "\xC3\xA9\n\xFE\\n\r\t");
}

TEST_F(ClientOptions, Errors) {
  const struct {
    const wchar_t* arguments;
    const wchar_t* message;
  } rows[] = {
      {L"", L"No verb specified"},
      {L"List .",
       L"Invalid verb specified: \"List\"; expected list, discover, send, term, pipe or bridge"},
      {L"list", L"Invalid number of arguments specified: \"0\"; expected list SERVER"},
      {L"list . --baud 9600", L"Invalid command line argument specified: \"--baud\""},
      {L"list . --json --", L"Invalid command line argument specified: \"--\""},
      {L"send . 5 x --eol", L"Command line argument's value is missing: \"--eol\""},
      {L"send \"\" 5 x",
       L"Invalid server specified: \"\"; expected a computer's name, or . for this machine"},
      {L"send . LPT1 x", L"Invalid port specified: \"LPT1\"; expected a port such as COM5"},
      {L"send . 5 x --data 9",
       L"Invalid number of data bits specified: \"9\"; expected a number from 5 to 8"},
      {L"send . 5 x --parity Odd",
       L"Invalid parity specified: \"Odd\"; expected none, odd, even, mark or space"},
      {L"send . 5 x --timeout 0",
       L"Invalid time-out specified: \"0\"; expected a number from 1 to 86400000"},
      {L"send . 5 a\\x4 --escapes",
       L"Invalid escape specified: \"a\\x4\"; expected \\r, \\n, \\t, \\\\ or \\xNN"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Error(row.arguments), row.message) << row.arguments;
  }
}

std::size_t LongestLine(const std::wstring& text) {
  std::wistringstream in(text);
  std::size_t longest = 0;
  for (std::wstring line; std::getline(in, line);)
    longest = std::max(longest, line.size());
  return longest;
}

// An example that no longer fits its verb, a help that does not name what the verb takes, or one
// that a usual console would break.
TEST_F(ClientOptions, HelpFitsTheVerbs) {
  const std::wstring all = usage();
  EXPECT_LE(LongestLine(all), 80u);
  for (const verb& verb : all_verbs()) {
    SCOPED_TRACE(testing::Message() << "verb " << std::wstring(verb.name));
    EXPECT_NE(all.find(verb.description), std::wstring::npos);
    const auto example = verb.example.substr(0, verb.example.find(L" <"));  // the rest is cmd's
    EXPECT_EQ(Error(std::wstring(verb.name) + L" " + std::wstring(example)), L"");
    const std::wstring own = usage_of(verb, *line);
    for (const auto& option : line->options())
      EXPECT_NE(own.find(L"--" + option.long_name), std::wstring::npos) << option.long_name;
    EXPECT_NE(own.find(verb.example), std::wstring::npos);
    EXPECT_LE(LongestLine(own), 80u);
  }
}

TEST(Json, AnyTextIsAValue) {
  json_array array;
  EXPECT_EQ(array.text(), L"[]\n");
  array.add({{L"port", L"COM5"}, {L"name", L"a \"b\" c:\\d\x1\n\x1f \xE4\x6F22/"}});
  array.add({{L"port", L""}});
  EXPECT_EQ(array.text(),
            L"[\n"
            L"  {\"port\": \"COM5\", \"name\": \"a \\\"b\\\" c:\\\\d\\u0001\\u000a\\u001f "
            L"\\u00e4\\u6f22/\"},\n"
            L"  {\"port\": \"\"}\n"
            L"]\n");
}

}  // namespace
}  // namespace tarnwheel::client
