#include "client/telnet/com_port_control.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>

#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

using test::bytes;
using test::numbers;

struct ComPortControl : testing::Test {
  // Plays a new client's "STEP = RESULT; STEP = RESULT". A step is a command's bytes or a word of
  // Do(); its result is the bytes of the answer, and the device's requests in brackets: 1 rate, 3
  // line (stop bits, parity, size), 4 and 5 break, 9 and 10 DTR, 12 and 13 RTS, 19 purge, 25 flow
  // control, 26 modem lines.
  void Play(const std::string& script) {
    control.emplace(line, settings, "me");
    std::istringstream steps(script);
    for (std::string step; std::getline(steps, step, ';');) {
      const std::size_t end = step.find('=');
      EXPECT_EQ(Do(step.substr(0, end)), step.substr(end + 1)) << step;
    }
  }

  std::string Do(const std::string& step) {
    device.take_calls();
    std::istringstream in(step);
    std::string word;
    if (std::isalpha(step[0]))
      in >> word;
    bytes given;
    for (int value; in >> value;)
      given.push_back(static_cast<std::byte>(value));
    const auto value = given.empty() ? DWORD{0} : std::to_integer<DWORD>(given[0]);
    if (word == "flows")
      return control->flowing().is_complete() ? " yes" : " no";
    bytes answer;
    if (word == "lines" || word == "ring")  // MS_*; "ring" if one has ended meanwhile
      answer = control->notices().modem_state(value, word == "ring");
    else if (word == "errors")  // SERIAL_ERROR_*
      answer = control->notices().line_state(value);
    else if (word == "close")
      control->close();
    else
      answer = control->execute(given).get();
    return numbers(answer) + device.take_calls();
  }

  test::fake_server server;
  test::fake_device& device = *server.device;
  com_port_settings settings{.line = {{9600}, {STOP_BIT_1, NO_PARITY, 8}}};
  remote_line line{{L".", 5, settings.line, server.pipe}};
  std::optional<com_port_control> control;
};

// A setting already in effect is not sent to the device; one that the device refuses has no effect.
TEST_F(ComPortControl, CommandsAreDoneAndAnsweredWithTheStateInEffect) {
  Play("1 0 0 0 0 = 101 0 0 37 128;1 0 1 194 0 = 101 0 1 194 0 [1 0 194 1 0];1 0 1 =");
  Play("2 8 = 102 8;2 7 = 102 7 [3 0 0 7];2 9 = 102 7;2 =");
  Play("3 2 = 103 2 [3 0 1 7];3 3 = 103 3 [3 0 2 7];3 4 = 103 4 [3 0 3 7];3 5 = 103 5 [3 0 4 7]");
  Play("4 2 = 104 2 [3 2 4 7];4 3 = 104 3 [3 2 4 7];2 5 = 102 5 [3 1 4 5]");  // 1.5 only for 5
  Play("5 0 = 105 1;5 17 = 105 1;5 16 = 105 14;5 20 =");
  Play("5 4 = 105 6;5 5 = 105 5 [4];5 4 = 105 5;5 6 = 105 6 [5]");
  Play("5 9 = 105 9 [10];5 8 = 105 8 [9];5 12 = 105 12 [13];5 11 = 105 11 [12]");
  Play("12 1 = 112 1 [19 8 0 0 0];12 2 = 112 2 [19 5 0 0 0];12 3 = 112 3 [19 13 0 0 0];12 0 =");
  EXPECT_EQ(control->input_purges(), 2u);
  Play("10 6 = 110 6;0 = 100 109 101;0 121 111 117 =;77 1 =; =");
  device.outcome = E_FAIL;
  Play("1 0 0 0 1 = 101 0 1 194 0 [1 1 0 0 0];2 6 = 102 5 [3 2 4 6]");
  Play("5 3 = 105 1 [25 9 0 0 0 128 0 0 0 0 4 0 0 0 4 0 0];12 1 = 112 1 [19 8 0 0 0]");
  Play("5 5 = 105 6 [4];5 9 = 105 8 [10];5 12 = 105 11 [13]");
}

TEST_F(ComPortControl, SettingsAreKeptForTheNextClient) {
  Play("1 0 0 1 44 = 101 0 0 1 44 [1 44 1 0 0];4 2 = 104 2 [3 2 0 8];5 9 = 105 9 [10]");
  Play("5 3 = 105 3 [25 8 0 0 0 128 0 0 0 0 4 0 0 0 4 0 0]");
  Play("1 0 0 0 0 = 101 0 0 1 44;4 0 = 104 2;5 13 = 105 16;5 7 = 105 9;5 12 = 105 12");
  Play("5 10 = 105 12;5 1 = 105 1 [25 0 0 0 0 0 0 0 0 0 4 0 0 0 4 0 0]");
}

// All lines first, then each change with the lines that have changed; a ring when it ends.
TEST_F(ComPortControl, ModemLinesAreReported) {
  Play("lines 16 = 107 16;lines 16 =;lines 112 = 107 114;lines 128 = 107 143;lines 0 = 107 8");
  Play("lines 0 = 107 0;lines 0 =;ring 0 = 107 4");
  device.modem_lines = 32;  // reported as soon as they are requested
  Play("lines 128 = 107 128;7 = 107 42 [26]");
  // With a mask of CTS alone; its going off is reported.
  Play("11 16 = 111 16;lines 0 = 107 0;lines 32 =;lines 48 = 107 16;lines 32 = 107 0");
}

TEST_F(ComPortControl, ClientMaySuspendUntilTheEndAndIsToldErrorsIfItWants) {
  Play("flows = yes;8 =;flows = no;9 =;flows = yes;8 =;close =;flows = yes;8 =;flows = yes");
  Play(
      "errors 1 =;10 255 = 110 255;errors 0 =;errors 3 = 106 24;errors 20 = 106 6;errors 8 = 106 "
      "2");
}

}  // namespace
}  // namespace tarnwheel::client
