#include "client/client_options.h"

#include <gtest/gtest.h>

#include "app/cmd_line_syntax_error.h"
#include "client/line_settings.h"
#include "client/utf8.h"
#include "client/values.h"

namespace tarnwheel::client {
namespace {

TEST(Values, Ports) {
  const struct {
    const wchar_t* text;
    std::uint32_t number;  // 0: refused
  } rows[] = {
      {L"COM5", 5},
      {L"com5", 5},
      {L"Com12", 12},
      {L"5", 5},
      {L"007", 7},
      {L"COM", 0},
      {L"", 0},
      {L"COM0", 0},
      {L"0", 0},
      {L"COM5x", 0},
      {L"COM 5", 0},
      {L"-5", 0},
      {L"LPT1", 0},
      {L"COMCOM5", 0},
      {L"4294967295", ~0u},
      {L"4294967296", 0},
      {L"CO5", 0},
      {L"COM\xFF15", 0},             // a full-width digit
      {L"18446744073709551621", 0},  // 5 in 64 bits
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "port " << row.text);
    if (row.number == 0) {
      EXPECT_THROW(static_cast<void>(parse_port(row.text)), Tamrin::cmd_line_syntax_error);
    } else {
      EXPECT_EQ(parse_port(row.text), row.number);
    }
  }
}

struct ClientOptions : testing::Test {
  ClientOptions() { add_client_options(line); }

  void Parse(const std::wstring& arguments) { line.parse(L"client " + arguments); }

  line_settings Line(const std::wstring& arguments) {
    Parse(arguments);
    return line_settings_of(line);
  }

  // The message of the error that comes of finding the verb and reading all options.
  std::string Error(const std::wstring& arguments) {
    try {
      static_cast<void>(Line(arguments));
      static_cast<void>(waiting_limit_of(line));
      static_cast<void>(verb_of(line));
      return "";
    } catch (const Tamrin::cmd_line_syntax_error& error) {
      return error.what();
    }
  }

  Tamrin::command_line line;
};

TEST_F(ClientOptions, Line) {
  const auto by_default = Line(L"");
  EXPECT_EQ(by_default.baud_rate.BaudRate, 115200u);
  EXPECT_EQ(by_default.control.WordLength, 8);
  EXPECT_EQ(by_default.control.Parity, NO_PARITY);
  EXPECT_EQ(by_default.control.StopBits, STOP_BIT_1);

  const auto asked = Line(L"--baud 300 --data-bits 5 --parity mark --stop-bits 1.5");
  EXPECT_EQ(asked.baud_rate.BaudRate, 300u);
  EXPECT_EQ(asked.control.WordLength, 5);
  EXPECT_EQ(asked.control.Parity, MARK_PARITY);
  EXPECT_EQ(asked.control.StopBits, STOP_BITS_1_5);
}

TEST_F(ClientOptions, Verbs) {
  Parse(L"send . COM5 \"two words\" --timeout 50");
  EXPECT_EQ(verb_of(line).run, &send_text);
  EXPECT_EQ(line.positional().back(), L"two words");
  EXPECT_EQ(waiting_limit_of(line), std::chrono::milliseconds(50));
  Parse(L"list server");
  EXPECT_EQ(verb_of(line).run, &list_ports);
  Parse(L"discover");
  EXPECT_EQ(verb_of(line).run, &discover_servers);
  EXPECT_EQ(waiting_limit_of(line), std::chrono::milliseconds(2000));
}

TEST_F(ClientOptions, Errors) {
  const struct {
    const wchar_t* arguments;
    const char* message;
  } rows[] = {
      {L"", "No verb specified."},
      {L"List .", "Invalid verb specified."},
      {L"list", "Invalid number of arguments specified."},
      {L"list . COM5", "Invalid number of arguments specified."},
      {L"discover .", "Invalid number of arguments specified."},
      {L"send . COM5 two words", "Invalid number of arguments specified."},
      {L"list . --baud 0", "Invalid baud rate specified."},
      {L"list . --data-bits 9", "Invalid number of data bits specified."},
      {L"list . --data-bits 4", "Invalid number of data bits specified."},
      {L"list . --parity Odd", "Invalid parity specified."},
      {L"list . --stop-bits 3", "Invalid number of stop bits specified."},
      {L"list . --timeout 0", "Invalid time-out specified."},
      {L"list . --timeout 86400001", "Invalid time-out specified."},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Error(row.arguments), row.message) << row.arguments;
  }
}

TEST_F(ClientOptions, UsageNamesEveryVerbAndOption) {
  const std::wstring text = usage(line);
  for (const verb& verb : all_verbs())
    EXPECT_NE(text.find(verb.description), std::wstring::npos) << std::wstring(verb.name);
  for (const auto& option : line.options())
    EXPECT_NE(text.find(L"--" + option.long_name), std::wstring::npos) << option.long_name;
}

TEST(Utf8, TextSurvivesTheWayThereAndBack) {
  const std::wstring text = L"a\u00E4\u20AC\xD83D\xDE00";
  EXPECT_EQ(to_utf8(text).size(), 1u + 2 + 3 + 4);
  EXPECT_EQ(from_utf8(to_utf8(text)), text);
  const std::byte invalid[] = {std::byte{'a'}, std::byte{0xFF}, std::byte{'b'}};
  EXPECT_EQ(from_utf8(invalid),
            L"a\uFFFD"
            L"b");
}

}  // namespace
}  // namespace tarnwheel::client
