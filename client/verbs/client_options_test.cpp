#include "client/verbs/client_options.h"

#include <gtest/gtest.h>

#include <optional>
#include <regex>
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

  // The settings of `send`'s line, its limit in milliseconds and its message, a character a byte.
  std::string Sent(const std::wstring& arguments) {
    Parse(L"send . COM5 " + arguments);
    const auto [rate, control, flow] = address_of({words_behind, *line}).settings;
    std::ostringstream text;
    text << rate.BaudRate << ' ' << int{control.WordLength} << ' ' << int{control.Parity} << ' '
         << int{control.StopBits} << ' ' << static_cast<int>(flow) << ' '
         << waiting_limit_of(*line).count() << ' ';
    for (const std::byte byte : message_of({words_behind, *line}))
      text << static_cast<char>(byte);
    return text.str();
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

// Parity, stop bits and flow control as a driver numbers them.
TEST_F(ClientOptions, LineLimitAndMessage) {
  EXPECT_EQ(Sent(L"a\\r --eol crlf"), "115200 8 0 0 0 2000 a\\r\r\n");
  EXPECT_EQ(Sent(L"x --baud 300 --data 5 --parity mark --stop 1.5 --flow xonxoff --timeout 1"),
            "300 5 3 1 2 1 x");
  EXPECT_EQ(Sent(L"\xE9\\x0a\\xFE\\\\n\\r\\t --escapes"),
            "115200 8 0 0 0 2000 \xC3\xA9\n\xFE\\n\r\t");
}

TEST_F(ClientOptions, Errors) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"", L"No verb specified"},
      {L"list a b", L"Invalid number of arguments specified: \"2\"; expected list [SERVER]"},
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
  for (const auto& [arguments, message] : rows)
    EXPECT_EQ(Error(arguments), message) << arguments;
}

// An example that no longer fits its verb, a help that does not name what the verb takes, or one
// that a usual console would break.
TEST_F(ClientOptions, HelpFitsTheVerbs) {
  const std::wregex too_long(L"[^\n]{81}");
  const std::wstring all = usage();
  EXPECT_FALSE(std::regex_search(all, too_long));
  for (const verb& verb : all_verbs()) {
    SCOPED_TRACE(testing::Message() << "verb " << std::wstring(verb.name));
    EXPECT_NE(all.find(verb.description), std::wstring::npos);
    const auto example = verb.example.substr(0, verb.example.find(L" <"));  // the rest is cmd's
    EXPECT_EQ(Error(std::wstring(verb.name) + L" " + std::wstring(example)), L"");
    const std::wstring own = usage_of(verb, *line);
    for (const auto& option : line->options())
      EXPECT_NE(own.find(L"--" + option.long_name), std::wstring::npos) << option.long_name;
    EXPECT_NE(own.find(verb.example), std::wstring::npos);
    EXPECT_FALSE(std::regex_search(own, too_long));
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
