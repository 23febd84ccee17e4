#include "client/telnet/com_port_control.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

bytes Bytes(std::initializer_list<int> values) {
  bytes result;
  for (const int value : values)
    result.push_back(static_cast<std::byte>(value));
  return result;
}

ostra::future<bool> Outcome(bool accepts) {
  co_return accepts;
}

ostra::future<std::uint32_t> Status(std::uint32_t status) {
  co_return status;
}

// Writes down what is done to it, and does it unless it refuses.
class Port final : public com_port {
 public:
  bool accepts = true;
  std::uint32_t status = 0;
  std::string done;

  ostra::future<bool> set_baud_rate(std::uint32_t rate) override {
    return Do("baud " + std::to_string(rate));
  }
  ostra::future<bool> set_line_control(SERIAL_LINE_CONTROL line) override {
    return Do("line " + std::to_string(line.WordLength) + "/" + std::to_string(line.Parity) + "/" +
              std::to_string(line.StopBits));
  }
  ostra::future<bool> set_flow_control(flow_control kind) override {
    return Do("flow " + std::to_string(static_cast<int>(kind)));
  }
  ostra::future<bool> set_break(bool on) override { return Do(on ? "break on" : "break off"); }
  ostra::future<bool> set_dtr(bool on) override { return Do(on ? "dtr on" : "dtr off"); }
  ostra::future<bool> set_rts(bool on) override { return Do(on ? "rts on" : "rts off"); }
  ostra::future<bool> purge(purged what) override {
    return Do("purge " + std::to_string(static_cast<int>(what)));
  }
  ostra::future<std::uint32_t> modem_status() override { return Status(status); }
  void suspend(bool suspended) override { done = suspended ? "suspend" : "resume"; }

 private:
  ostra::future<bool> Do(std::string what) {
    done = std::move(what);
    return Outcome(accepts);
  }
};

struct ComPortControl : testing::Test {
  bytes Execute(const bytes& command) { return control.execute(command).get(); }

  Port port;
  com_port_settings settings{.line = {{9600}, {STOP_BIT_1, NO_PARITY, 8}}};
  com_port_control control{port, settings, "me"};
};

struct Command {
  const char* name;
  bytes command;
  std::string done;
  bytes answer;
  bytes refusal;  // the answer of a port that refuses
};

const Command kCommands[] = {
    {"BaudRate", Bytes({1, 0, 1, 0xC2, 0}), "baud 115200", Bytes({101, 0, 1, 0xC2, 0}),
     Bytes({101, 0, 0, 0x25, 0x80})},
    {"BaudRateQuery", Bytes({1, 0, 0, 0, 0}), "", Bytes({101, 0, 0, 0x25, 0x80}),
     Bytes({101, 0, 0, 0x25, 0x80})},
    {"BaudRateAsItIs", Bytes({1, 0, 0, 0x25, 0x80}), "", Bytes({101, 0, 0, 0x25, 0x80}),
     Bytes({101, 0, 0, 0x25, 0x80})},
    {"BaudRateCut", Bytes({1, 0, 1}), "", {}, {}},
    {"DataSize", Bytes({2, 7}), "line 7/0/0", Bytes({102, 7}), Bytes({102, 8})},
    {"DataSizeAsItIs", Bytes({2, 8}), "", Bytes({102, 8}), Bytes({102, 8})},
    {"DataSizeQuery", Bytes({2, 0}), "", Bytes({102, 8}), Bytes({102, 8})},
    {"DataSizeOfNoLine", Bytes({2, 9}), "", Bytes({102, 8}), Bytes({102, 8})},
    {"ParityOdd", Bytes({3, 2}), "line 8/1/0", Bytes({103, 2}), Bytes({103, 1})},
    {"ParityEven", Bytes({3, 3}), "line 8/2/0", Bytes({103, 3}), Bytes({103, 1})},
    {"ParityMark", Bytes({3, 4}), "line 8/3/0", Bytes({103, 4}), Bytes({103, 1})},
    {"ParitySpace", Bytes({3, 5}), "line 8/4/0", Bytes({103, 5}), Bytes({103, 1})},
    {"ParityQuery", Bytes({3, 0}), "", Bytes({103, 1}), Bytes({103, 1})},
    {"TwoStopBits", Bytes({4, 2}), "line 8/0/2", Bytes({104, 2}), Bytes({104, 1})},
    {"OneAndAHalfOf8Bits", Bytes({4, 3}), "line 8/0/2", Bytes({104, 3}), Bytes({104, 1})},
    {"StopSizeQuery", Bytes({4, 0}), "", Bytes({104, 1}), Bytes({104, 1})},
    {"FlowQuery", Bytes({5, 0}), "", Bytes({105, 1}), Bytes({105, 1})},
    {"FlowNone", Bytes({5, 1}), "flow 0", Bytes({105, 1}), Bytes({105, 1})},
    {"FlowXonXoff", Bytes({5, 2}), "flow 2", Bytes({105, 2}), Bytes({105, 1})},
    {"FlowRtsCts", Bytes({5, 3}), "flow 1", Bytes({105, 3}), Bytes({105, 1})},
    {"FlowByDcdIsNotToBeHad", Bytes({5, 17}), "", Bytes({105, 1}), Bytes({105, 1})},
    {"BreakQuery", Bytes({5, 4}), "", Bytes({105, 6}), Bytes({105, 6})},
    {"BreakOn", Bytes({5, 5}), "break on", Bytes({105, 5}), Bytes({105, 6})},
    {"BreakOff", Bytes({5, 6}), "break off", Bytes({105, 6}), Bytes({105, 6})},
    {"DtrQuery", Bytes({5, 7}), "", Bytes({105, 8}), Bytes({105, 8})},
    {"DtrOff", Bytes({5, 9}), "dtr off", Bytes({105, 9}), Bytes({105, 8})},
    {"RtsQuery", Bytes({5, 10}), "", Bytes({105, 11}), Bytes({105, 11})},
    {"RtsOff", Bytes({5, 12}), "rts off", Bytes({105, 12}), Bytes({105, 11})},
    {"InputFlowQuery", Bytes({5, 13}), "", Bytes({105, 14}), Bytes({105, 14})},
    {"InputFlowIsNotSetAlone", Bytes({5, 16}), "", Bytes({105, 14}), Bytes({105, 14})},
    {"ControlOfNothing", Bytes({5, 20}), "", {}, {}},
    {"PurgeInput", Bytes({12, 1}), "purge 0", Bytes({112, 1}), Bytes({112, 1})},
    {"PurgeOutput", Bytes({12, 2}), "purge 1", Bytes({112, 2}), Bytes({112, 2})},
    {"PurgeBoth", Bytes({12, 3}), "purge 2", Bytes({112, 3}), Bytes({112, 3})},
    {"PurgeOfNothing", Bytes({12, 0}), "", {}, {}},
    {"Suspend", Bytes({8}), "suspend", {}, {}},
    {"Resume", Bytes({9}), "resume", {}, {}},
    {"LineStateMask", Bytes({10, 6}), "", Bytes({110, 6}), Bytes({110, 6})},
    {"ModemStateMask", Bytes({11, 0xF0}), "", Bytes({111, 0xF0}), Bytes({111, 0xF0})},
    {"Signature", Bytes({0}), "", Bytes({100, 'm', 'e'}), Bytes({100, 'm', 'e'})},
    {"SignatureOfTheClient", Bytes({0, 'y', 'o', 'u'}), "", {}, {}},
    {"Nothing", {}, "", {}, {}},
    {"WithoutItsArgument", Bytes({2}), "", {}, {}},
    {"UnknownCommand", Bytes({77, 1}), "", {}, {}},
};

TEST_F(ComPortControl, CommandsAreDoneAndAnsweredWithTheStateInEffect) {
  for (const Command& row : kCommands) {
    for (const bool accepts : {true, false}) {
      Port device;
      device.accepts = accepts;
      com_port_settings state = settings;
      com_port_control one(device, state, "me");
      EXPECT_EQ(one.execute(row.command).get(), accepts ? row.answer : row.refusal) << row.name;
      EXPECT_EQ(device.done, row.done) << row.name;
    }
  }
}

TEST_F(ComPortControl, SettingsAreKeptForTheNextQuestion) {
  Execute(Bytes({1, 0, 0, 1, 44}));
  Execute(Bytes({4, 2}));
  Execute(Bytes({2, 5}));
  EXPECT_EQ(port.done, "line 5/0/1");  // two stop bits are one and a half for 5 bits
  Execute(Bytes({5, 3}));
  Execute(Bytes({5, 9}));
  com_port_control next(port, settings, "me");
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
  port.status = DWORD{MS_RLSD_ON};
  EXPECT_EQ(Execute(Bytes({7})), Bytes({107, 0x80}));
  port.status = 0;
  EXPECT_EQ(Execute(Bytes({7})), Bytes({107, 0x08}));
}

TEST_F(ComPortControl, ErrorsAreToldToWhoWantsThem) {
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_BREAK), bytes());  // nobody does at first
  Execute(Bytes({10, 0xFF}));
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_BREAK | SERIAL_ERROR_FRAMING), Bytes({106, 0x18}));
  EXPECT_EQ(control.line_notice(SERIAL_ERROR_PARITY | SERIAL_ERROR_OVERRUN), Bytes({106, 0x06}));
  EXPECT_EQ(control.line_notice(0), bytes());
}

TEST_F(ComPortControl, AnyCommandIsSurvived) {
  std::mt19937 random(1);
  for (int round = 0; round < 20'000; ++round) {
    bytes command(random() % 8);
    for (std::byte& byte : command)
      byte = static_cast<std::byte>(random() % 2 == 0 ? random() % 24 : random());
    const auto answer = Execute(command);
    EXPECT_LE(answer.size(), 5u);
    if (!answer.empty()) {
      EXPECT_EQ(std::to_integer<int>(answer[0]), std::to_integer<int>(command[0]) + 100);
    }
  }
}

}  // namespace
}  // namespace tarnwheel::client
