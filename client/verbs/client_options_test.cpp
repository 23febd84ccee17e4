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

  line_settings Line(const std::wstring& arguments) {
    Parse(L"send . COM5 x " + arguments);
    return line_settings_of(*line);
  }

  // The message of the error that comes of reading it.
  std::string Error(const std::wstring& arguments) {
    try {
      Parse(arguments);
      if (chosen->run == &send_text) {
        static_cast<void>(line_settings_of(*line));
        static_cast<void>(waiting_limit_of(*line));
      }
      return "";
    } catch (const Tamrin::cmd_line_syntax_error& error) {
      return error.what();
    }
  }

  const verb* chosen = nullptr;
  std::optional<Tamrin::command_line> line;
  std::span<const std::wstring_view> words_behind;
};

TEST_F(ClientOptions, Line) {
  const auto by_default = Line(L"");
  EXPECT_EQ(by_default.baud_rate.BaudRate, 115200u);
  EXPECT_EQ(by_default.control.WordLength, 8);
  EXPECT_EQ(by_default.control.Parity, NO_PARITY);
  EXPECT_EQ(by_default.control.StopBits, STOP_BIT_1);
  EXPECT_EQ(by_default.flow, flow_control::none);

  const auto asked = Line(L"--baud 300 --data 5 --parity mark --stop 1.5 --flow xonxoff");
  EXPECT_EQ(asked.baud_rate.BaudRate, 300u);
  EXPECT_EQ(asked.control.WordLength, 5);
  EXPECT_EQ(asked.control.Parity, MARK_PARITY);
  EXPECT_EQ(asked.control.StopBits, STOP_BITS_1_5);
  EXPECT_EQ(asked.flow, flow_control::xon_xoff);
}

TEST_F(ClientOptions, Verbs) {
  Parse(L"send . COM5 \"two words\" --timeout 50");
  EXPECT_EQ(chosen->run, &send_text);
  EXPECT_EQ(words_behind.back(), L"two words");
  EXPECT_EQ(waiting_limit_of(*line), std::chrono::milliseconds(50));
  Parse(L"list --json server");
  EXPECT_EQ(chosen->run, &list_ports);
  EXPECT_EQ(words_behind.front(), L"server");
  EXPECT_TRUE(line->at(kJsonOption).flag());
  Parse(L"discover");
  EXPECT_EQ(chosen->run, &discover_servers);
  EXPECT_EQ(waiting_limit_of(*line), std::chrono::milliseconds(2000));
}

TEST_F(ClientOptions, Errors) {
  const struct {
    const wchar_t* arguments;
    const char* message;
  } rows[] = {
      {L"", "No verb specified."},
      {L"--timeout 5 discover", "No verb specified."},
      {L"List .", "Invalid verb specified."},
      {L"list", "Invalid number of arguments specified."},
      {L"list . COM5", "Invalid number of arguments specified."},
      {L"discover .", "Invalid number of arguments specified."},
      {L"send . COM5 two words", "Invalid number of arguments specified."},
      {L"list . --baud 9600", "Invalid command line argument specified"},  // not an option of list
      {L"send . 5 x --baud 0", "Invalid baud rate specified."},
      {L"send . 5 x --data 9", "Invalid number of data bits specified."},
      {L"send . 5 x --data 4", "Invalid number of data bits specified."},
      {L"send . 5 x --parity Odd", "Invalid parity specified."},
      {L"send . 5 x --stop 3", "Invalid number of stop bits specified."},
      {L"send . 5 x --flow hardware", "Invalid flow control specified."},
      {L"send . 5 x --timeout 0", "Invalid time-out specified."},
      {L"send . 5 x --timeout 86400001", "Invalid time-out specified."},
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
    EXPECT_EQ(Error(std::wstring(verb.name) + L" " + std::wstring(example)), "");
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
            L"\xE4\x6F22/\"},\n"
            L"  {\"port\": \"\"}\n"
            L"]\n");
}

}  // namespace
}  // namespace tarnwheel::client
