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

// Reads whole command lines as the program does, without running anything.
struct ClientOptions : testing::Test {
  // Returns "", or for `send` the settings of its line, its limit in milliseconds and its message,
  // one character per byte; on an error "!" and the mistake.
  std::wstring Read(const std::wstring& arguments) {
    try {
      const auto words = Tamrin::split(L"client " + arguments);
      const verb& chosen = verb_named(words.size() > 1 ? words[1] : L"");
      line.emplace();
      add_options_of(chosen, *line);
      line->parse(L"client " + arguments);
      const invocation request = {arguments_of(chosen, *line), *line};
      return chosen.run == &send_text ? Sent(request) : L"";
    } catch (const Tamrin::cmd_line_syntax_error& error) {
      return L"!" + mistake_in(error);
    }
  }

  static std::wstring Sent(const invocation& request) {
    const auto [rate, control, flow] = address_of(request).settings;
    std::wostringstream text;
    text << rate.BaudRate << L' ' << int{control.WordLength} << L' ' << int{control.Parity} << L' '
         << int{control.StopBits} << L' ' << static_cast<int>(flow) << L' '
         << waiting_limit_of(request.options).count() << L' ';
    for (const std::byte byte : message_of(request))
      text << std::to_integer<wchar_t>(byte);
    return text.str();
  }

  std::optional<Tamrin::command_line> line;
};

// Parity and stop bits are a driver's numbers, flow control is the value of flow_control.
TEST_F(ClientOptions, ValuesAndWhatIsWrong) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"send . COM5 a\\r --eol crlf", L"115200 8 0 0 0 2000 a\\r\r\n"},
      {L"send . 5 x --baud 300 --data 5 --parity mark --stop 1.5 --flow xonxoff --timeout 1",
       L"300 5 3 1 2 1 x"},
      {L"send . 5 \xE9\\x0a\\xFE\\\\n\\r\\t --escapes",
       L"115200 8 0 0 0 2000 \xC3\xA9\n\xFE\\n\r\t"},
      {L"", L"!No verb specified"},
      {L"list a b", L"!Invalid number of arguments specified: \"2\"; expected list [SERVER]"},
      {L"send . 5 x --eol", L"!Command line argument's value is missing: \"--eol\""},
      {L"send \"\" 5 x",
       L"!Invalid server specified: \"\"; expected a computer's name, or . for this machine"},
      {L"send . LPT1 x", L"!Invalid port specified: \"LPT1\"; expected a port such as COM5"},
      {L"send . 5 x --data 9",
       L"!Invalid number of data bits specified: \"9\"; expected a number from 5 to 8"},
      {L"send . 5 x --parity Odd",
       L"!Invalid parity specified: \"Odd\"; expected none, odd, even, mark or space"},
      {L"send . 5 x --timeout 0",
       L"!Invalid time-out specified: \"0\"; expected a number from 1 to 86400000"},
      {L"send . 5 a\\x4 --escapes",
       L"!Invalid escape specified: \"a\\x4\"; expected \\r, \\n, \\t, \\\\ or \\xNN"},
  };
  for (const auto& [arguments, values] : rows)
    EXPECT_EQ(Read(arguments), values) << arguments;
}

// Finds an example that no longer fits its verb, and help that lacks the verb's options or that a
// console of 80 columns would wrap.
TEST_F(ClientOptions, HelpFitsTheVerbs) {
  const std::wregex too_long(L"[^\n]{81}");
  const std::wstring all = usage();
  for (const verb& verb : all_verbs()) {
    SCOPED_TRACE(testing::Message() << "verb " << std::wstring(verb.name));
    EXPECT_NE(all.find(verb.description), std::wstring::npos);
    const auto example = verb.example.substr(0, verb.example.find(L" <"));  // the rest is cmd's
    EXPECT_FALSE(Read(std::wstring(verb.name) + L" " + std::wstring(example)).starts_with(L'!'));
    const std::wstring own = usage_of(verb, *line);
    EXPECT_NE(own.find(L"--help "), std::wstring::npos);  // the last option
    EXPECT_NE(own.find(verb.example), std::wstring::npos);
    EXPECT_FALSE(std::regex_search(all + own, too_long));
  }
}

TEST(Json, AnyTextIsAValue) {
  json_array array;
  EXPECT_EQ(array.text(), L"[]\n");
  array.add({{L"port", L""}, {L"name", L"a \"b\" c:\\\n\x1f~\x7F"}});
  EXPECT_EQ(array.text(),
            L"[\n  {\"port\": \"\", \"name\": \"a \\\"b\\\" c:\\\\\\u000a\\u001f~\\u007f\"}\n]\n");
}

}  // namespace
}  // namespace tarnwheel::client
