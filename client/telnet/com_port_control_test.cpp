#include "client/telnet/com_port_control.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

bytes Bytes(std::initializer_list<int> values) {
  bytes result;
  for (const int value : values)
    result.push_back(static_cast<std::byte>(value));
  return result;
}

// "1 0 255", bytes in decimal.
bytes Parsed(const std::string& text) {
  std::istringstream in(text);
  bytes result;
  for (int value; in >> value;)
    result.push_back(static_cast<std::byte>(value));
  return result;
}
std::string Text(const bytes& data) {
  std::string text;
  for (const std::byte byte : data)
    text += (text.empty() ? "" : " ") + std::to_string(std::to_integer<int>(byte));
  return text;
}

struct ComPortControl : testing::Test {
  bytes Execute(const bytes& command) { return control.execute(command).get(); }

  // The code and the input's bytes of what the device has been asked for since `from`.
  std::string Done(std::size_t from) const {
    const auto calls = device.controls();
    std::string done;
    for (auto call = calls.begin() + static_cast<std::ptrdiff_t>(from); call != calls.end();
         ++call) {
      done += std::to_string((call->code >> 2) & 0x3FF);
      done += (call->input.empty() ? "" : " ") + Text(call->input);
    }
    return done;
  }

  test::fake_server server;
  test::fake_device& device = *server.device;
  const line_settings line_settings_{{9600}, {STOP_BIT_1, NO_PARITY, 8}};
  remote_line line{{L".", 5, line_settings_, server.pipe()}};
  com_port_settings settings{.line = line_settings_};
  com_port_control control{line, settings, "me"};
};

struct Command {
  const char* name;
  std::string command;
  std::string done;
  std::string answer;
  std::string refusal;  // the answer of a port that refuses
};

// The answers of a device that refuses tell the state before. A device is asked for nothing that it
// has already. Numbers of its requests: 1 rate, 3 line (stop bits, parity, size), 4 and 5 break, 9 and
// 10 DTR, 12 and 13 RTS, 19 purge.
const Command kCommands[] = {
    {"BaudRate", "1 0 1 194 0", "1 0 194 1 0", "101 0 1 194 0", "101 0 0 37 128"},
    {"BaudRateQuery", "1 0 0 0 0", "", "101 0 0 37 128", "101 0 0 37 128"},
    {"BaudRateCut", "1 0 1", "", "", ""},
    {"DataSize", "2 7", "3 0 0 7", "102 7", "102 8"},
    {"DataSizeAsItIs", "2 8", "", "102 8", "102 8"},
    {"DataSizeOfNoLine", "2 9", "", "102 8", "102 8"},
    {"ParityOdd", "3 2", "3 0 1 8", "103 2", "103 1"},
    {"ParityEven", "3 3", "3 0 2 8", "103 3", "103 1"},
    {"ParitySpace", "3 5", "3 0 4 8", "103 5", "103 1"},
    {"TwoStopBits", "4 2", "3 2 0 8", "104 2", "104 1"},
    {"OneAndAHalfOf8Bits", "4 3", "3 2 0 8", "104 3", "104 1"},
    {"FlowByDcdIsNotToBeHad", "5 17", "", "105 1", "105 1"},
    {"BreakQuery", "5 4", "", "105 6", "105 6"},
    {"BreakOn", "5 5", "4", "105 5", "105 6"},
    {"DtrOff", "5 9", "10", "105 9", "105 8"},
    {"RtsOff", "5 12", "13", "105 12", "105 11"},
    {"InputFlowIsNotSetAlone", "5 16", "", "105 14", "105 14"},
    {"ControlOfNothing", "5 20", "", "", ""},
    {"PurgeInput", "12 1", "19 8 0 0 0", "112 1", "112 1"},
    {"PurgeOutput", "12 2", "19 5 0 0 0", "112 2", "112 2"},
    {"PurgeBoth", "12 3", "19 13 0 0 0", "112 3", "112 3"},
    {"PurgeOfNothing", "12 0", "", "", ""},
    {"LineStateMask", "10 6", "", "110 6", "110 6"},
    {"Signature", "0", "", "100 109 101", "100 109 101"},
    {"SignatureOfTheClient", "0 121 111 117", "", "", ""},
    {"Nothing", "", "", "", ""},
    {"WithoutItsArgument", "2", "", "", ""},
    {"UnknownCommand", "77 1", "", "", ""},
};

TEST_F(ComPortControl, CommandsAreDoneAndAnsweredWithTheStateInEffect) {
  for (const Command& row : kCommands) {
    for (const bool accepts : {true, false}) {
      device.outcome = accepts ? S_OK : E_FAIL;
      const std::size_t before = device.controls().size();
      com_port_settings state{.line = line_settings_};
      com_port_control one(line, state, "me");
      EXPECT_EQ(Text(one.execute(Parsed(row.command)).get()), accepts ? row.answer : row.refusal)
          << row.name;
      EXPECT_EQ(Done(before), row.done) << row.name;
    }
  }
}

TEST_F(ComPortControl, SettingsAreKeptForTheNextQuestion) {
  Execute(Bytes({1, 0, 0, 1, 44}));
  Execute(Bytes({4, 2}));
  const std::size_t before = device.controls().size();
  Execute(Bytes({2, 5}));
  EXPECT_EQ(Done(before), "3 1 0 5");  // two stop bits are one and a half for 5 bits
  Execute(Bytes({5, 3}));
  Execute(Bytes({5, 9}));
  com_port_control next(line, settings, "me");
  EXPECT_EQ(next.execute(Bytes({1, 0, 0, 0, 0})).get(), Bytes({101, 0, 0, 1, 44}));
  EXPECT_EQ(next.execute(Bytes({4, 0})).get(), Bytes({104, 2}));
  EXPECT_EQ(next.execute(Bytes({5, 13})).get(), Bytes({105, 16}));
  EXPECT_EQ(next.execute(Bytes({5, 7})).get(), Bytes({105, 9}));
}

TEST_F(ComPortControl, ModemLinesAreToldWithTheirChanges) {
  EXPECT_EQ(control.modem_notice(DWORD{MS_CTS_ON}), Bytes({107, 0x10}));  // no change: the first
  EXPECT_EQ(control.modem_notice(DWORD{MS_CTS_ON}), bytes());
  EXPECT_EQ(control.modem_notice(DWORD{MS_CTS_ON} | DWORD{MS_DSR_ON} | DWORD{MS_RING_ON}),
            Bytes({107, 0x72}));
  EXPECT_EQ(control.modem_notice(DWORD{MS_RLSD_ON}), Bytes({107, 0x8F}));
  EXPECT_EQ(control.modem_notice(0), Bytes({107, 0x08}));
  EXPECT_EQ(control.modem_notice(0, true), Bytes({107, 0x04}));  // it has rung meanwhile
}

TEST_F(ComPortControl, MaskedChangesAreNotTold) {
  Execute(Bytes({11, 0x10}));  // CTS alone
  EXPECT_EQ(control.modem_notice(0), Bytes({107, 0}));
  EXPECT_EQ(control.modem_notice(DWORD{MS_DSR_ON}), bytes());
  EXPECT_EQ(control.modem_notice(DWORD{MS_DSR_ON} | DWORD{MS_CTS_ON}), Bytes({107, 0x10}));
  EXPECT_EQ(control.modem_notice(DWORD{MS_DSR_ON}), Bytes({107, 0}));  // it went off: that is told
}

TEST_F(ComPortControl, ModemStateCanBeAskedFor) {
  device.outputs[IOCTL_SERIAL_GET_MODEMSTATUS] = Bytes({MS_RLSD_ON, 0, 0, 0});
  EXPECT_EQ(Execute(Bytes({7})), Bytes({107, 0x80}));
  device.outputs[IOCTL_SERIAL_GET_MODEMSTATUS] = Bytes({0, 0, 0, 0});
  EXPECT_EQ(Execute(Bytes({7})), Bytes({107, 0x08}));
}

TEST_F(ComPortControl, ClientMaySuspendUntilTheEnd) {
  Execute(Bytes({8}));
  const auto flowing = control.flowing();
  EXPECT_FALSE(flowing.is_complete());
  Execute(Bytes({9}));
  EXPECT_TRUE(flowing.is_complete());
  Execute(Bytes({8}));
  control.close();
  Execute(Bytes({8}));
  EXPECT_TRUE(control.flowing().is_complete());
}

TEST_F(ComPortControl, ErrorsAreToldToWhoWantsThem) {
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_BREAK), bytes());  // nobody does at first
  Execute(Bytes({10, 0xFF}));
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_BREAK | SERIAL_ERROR_FRAMING), Bytes({106, 0x18}));
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_PARITY | SERIAL_ERROR_OVERRUN), Bytes({106, 0x06}));
  EXPECT_EQ(control.line_notice(0), bytes());
}

}  // namespace
}  // namespace tarnwheel::client
