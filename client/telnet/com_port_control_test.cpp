#include "client/telnet/com_port_control.h"

#include <gtest/gtest.h>

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

struct ComPortControl : testing::Test {
  bytes Execute(const bytes& command) { return control.execute(command).get(); }

  // The code and the input's bytes of what the device has been asked for since `from`.
  std::string Done(std::size_t from) const {
    const auto calls = device.controls();
    std::string done;
    for (auto call = calls.begin() + static_cast<std::ptrdiff_t>(from); call != calls.end();
         ++call) {
      done += std::to_string((call->code >> 2) & 0x3FF);
      for (const std::byte byte : call->input)
        done += " " + std::to_string(std::to_integer<int>(byte));
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
  bytes command;
  std::string done;
  bytes answer;
  bytes refusal;  // the answer of a port that refuses
};

// The answers of a device that refuses tell the state before. A device is asked for nothing that it
// has already. Numbers of its requests: 1 rate, 3 line (stop bits, parity, size), 4 and 5 break, 9 and
// 10 DTR, 12 and 13 RTS, 19 purge.
const Command kCommands[] = {
    {"BaudRate", Bytes({1, 0, 1, 0xC2, 0}), "1 0 194 1 0", Bytes({101, 0, 1, 0xC2, 0}),
     Bytes({101, 0, 0, 0x25, 0x80})},
    {"BaudRateQuery", Bytes({1, 0, 0, 0, 0}), "", Bytes({101, 0, 0, 0x25, 0x80}),
     Bytes({101, 0, 0, 0x25, 0x80})},
    {"BaudRateCut", Bytes({1, 0, 1}), "", {}, {}},
    {"DataSize", Bytes({2, 7}), "3 0 0 7", Bytes({102, 7}), Bytes({102, 8})},
    {"DataSizeAsItIs", Bytes({2, 8}), "", Bytes({102, 8}), Bytes({102, 8})},
    {"DataSizeOfNoLine", Bytes({2, 9}), "", Bytes({102, 8}), Bytes({102, 8})},
    {"ParityOdd", Bytes({3, 2}), "3 0 1 8", Bytes({103, 2}), Bytes({103, 1})},
    {"ParityEven", Bytes({3, 3}), "3 0 2 8", Bytes({103, 3}), Bytes({103, 1})},
    {"ParitySpace", Bytes({3, 5}), "3 0 4 8", Bytes({103, 5}), Bytes({103, 1})},
    {"TwoStopBits", Bytes({4, 2}), "3 2 0 8", Bytes({104, 2}), Bytes({104, 1})},
    {"OneAndAHalfOf8Bits", Bytes({4, 3}), "3 2 0 8", Bytes({104, 3}), Bytes({104, 1})},
    {"FlowByDcdIsNotToBeHad", Bytes({5, 17}), "", Bytes({105, 1}), Bytes({105, 1})},
    {"BreakQuery", Bytes({5, 4}), "", Bytes({105, 6}), Bytes({105, 6})},
    {"BreakOn", Bytes({5, 5}), "4", Bytes({105, 5}), Bytes({105, 6})},
    {"DtrOff", Bytes({5, 9}), "10", Bytes({105, 9}), Bytes({105, 8})},
    {"RtsOff", Bytes({5, 12}), "13", Bytes({105, 12}), Bytes({105, 11})},
    {"InputFlowIsNotSetAlone", Bytes({5, 16}), "", Bytes({105, 14}), Bytes({105, 14})},
    {"ControlOfNothing", Bytes({5, 20}), "", {}, {}},
    {"PurgeInput", Bytes({12, 1}), "19 8 0 0 0", Bytes({112, 1}), Bytes({112, 1})},
    {"PurgeOutput", Bytes({12, 2}), "19 5 0 0 0", Bytes({112, 2}), Bytes({112, 2})},
    {"PurgeBoth", Bytes({12, 3}), "19 13 0 0 0", Bytes({112, 3}), Bytes({112, 3})},
    {"PurgeOfNothing", Bytes({12, 0}), "", {}, {}},
    {"LineStateMask", Bytes({10, 6}), "", Bytes({110, 6}), Bytes({110, 6})},
    {"Signature", Bytes({0}), "", Bytes({100, 'm', 'e'}), Bytes({100, 'm', 'e'})},
    {"SignatureOfTheClient", Bytes({0, 'y', 'o', 'u'}), "", {}, {}},
    {"Nothing", {}, "", {}, {}},
    {"WithoutItsArgument", Bytes({2}), "", {}, {}},
    {"UnknownCommand", Bytes({77, 1}), "", {}, {}},
};

TEST_F(ComPortControl, CommandsAreDoneAndAnsweredWithTheStateInEffect) {
  for (const Command& row : kCommands) {
    for (const bool accepts : {true, false}) {
      device.outcome = accepts ? S_OK : E_FAIL;
      const std::size_t before = device.controls().size();
      com_port_settings state{.line = line_settings_};
      com_port_control one(line, state, "me");
      EXPECT_EQ(one.execute(row.command).get(), accepts ? row.answer : row.refusal) << row.name;
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
