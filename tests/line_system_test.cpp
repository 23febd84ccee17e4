// A serial line with all its signals: settings, modem lines, events, bytes and time-outs. The port
// is one of the virtual serial driver, which answers as a real one does.
#include <gtest/gtest.h>

#include <map>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/server_process.h"
#include "tests/virtual_port.h"

namespace system_test {
namespace {

constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

class Line : public ::testing::Test {
 protected:
  Line() { EXPECT_EQ(client_.OpenPort(kVirtualPort), 0u); }

  void SetWaitMask(std::uint32_t events) {
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_WAIT_MASK, 0, U32(events)), (PortResult{0, {}}));
  }

  void Control(std::uint32_t code) {
    EXPECT_EQ(client_.IoControl(code, 0, {}), (PortResult{0, {}}));
  }

  // Sends a wait-on-mask and waits until it pends in the driver.
  void StartWait(std::uint32_t call) {
    EXPECT_TRUE(
        client_.Request(call, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4, {})));
    EXPECT_TRUE(port_.ComesToHave({.controls = 1}));
  }

  void ExpectEvents(std::uint32_t call, std::uint32_t events) {
    EXPECT_EQ(client_.Receive(),
              (Message{call, kClientCode, kIoControl, Join({U32(0), Vector(U32(events))})}));
  }

  std::map<std::uint32_t, Bytes> Replies(int count) {
    std::map<std::uint32_t, Bytes> replies;
    for (int i = 0; i < count; ++i) {
      Message reply = client_.Receive();
      replies[reply.call] = std::move(reply.payload);
    }
    return replies;
  }

  VirtualPort port_;
  ServerProcess server_;
  RawClient client_;
};

TEST_F(Line, EverySettingReachesTheDriverAndComesBack) {
  const struct {
    std::uint32_t set;
    std::uint32_t get;
    Bytes value;
  } settings[] = {
      {IOCTL_SERIAL_SET_BAUD_RATE, IOCTL_SERIAL_GET_BAUD_RATE, U32(250'000)},
      {IOCTL_SERIAL_SET_LINE_CONTROL, IOCTL_SERIAL_GET_LINE_CONTROL, {STOP_BITS_2, MARK_PARITY, 7}},
      {IOCTL_SERIAL_SET_TIMEOUTS, IOCTL_SERIAL_GET_TIMEOUTS,
       Join({U32(1), U32(2), U32(3), U32(4), U32(0x7FFFFFFF)})},
      {IOCTL_SERIAL_SET_CHARS, IOCTL_SERIAL_GET_CHARS, {26, '?', 0xFF, '\n', 17, 19}},
      {IOCTL_SERIAL_SET_HANDFLOW, IOCTL_SERIAL_GET_HANDFLOW,
       Join({U32(SERIAL_DTR_HANDSHAKE | SERIAL_CTS_HANDSHAKE),
             U32(SERIAL_RTS_HANDSHAKE | SERIAL_AUTO_TRANSMIT), U32(1024), U32(256)})},
      {IOCTL_SERIAL_SET_WAIT_MASK, IOCTL_SERIAL_GET_WAIT_MASK, U32(0x1FFF)},
  };
  for (const auto& [set, get, value] : settings) {
    const auto size = static_cast<std::uint32_t>(value.size());
    port_.TakeJournal();
    EXPECT_EQ(client_.IoControl(set, 0, value), (PortResult{0, {}}));
    EXPECT_EQ(client_.IoControl(get, size, {}), (PortResult{0, value}));
    EXPECT_EQ(port_.TakeJournal(), (std::vector<DriverRequest>{{set, size, value}, {get, 0, {}}}));
  }
}

TEST_F(Line, OutputsFollowTheClient) {
  const struct {
    std::uint32_t control;
    std::uint32_t outputs;
  } steps[] = {
      {IOCTL_SERIAL_SET_DTR, OUTPUT_DTR},
      {IOCTL_SERIAL_SET_RTS, OUTPUT_DTR | OUTPUT_RTS},
      {IOCTL_SERIAL_SET_BREAK_ON, OUTPUT_DTR | OUTPUT_RTS | OUTPUT_BREAK},
      {IOCTL_SERIAL_CLR_DTR, OUTPUT_RTS | OUTPUT_BREAK},
      {IOCTL_SERIAL_CLR_RTS, OUTPUT_BREAK},
      {IOCTL_SERIAL_SET_BREAK_OFF, 0},
  };
  for (const auto& [control, outputs] : steps) {
    Control(control);
    EXPECT_EQ(port_.State().outputs, outputs);
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_DTRRTS, 4, {}),
              (PortResult{0, U32(outputs & (OUTPUT_DTR | OUTPUT_RTS))}));
  }
}

TEST_F(Line, ModemLinesAreReported) {
  for (const std::uint32_t inputs :
       {INPUT_CTS | INPUT_DSR, INPUT_RING | INPUT_DCD, INPUT_DCD | INPUT_CTS, INPUT_DSR | 0}) {
    port_.SetModemInputs(inputs);
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_MODEMSTATUS, 4, {}), (PortResult{0, U32(inputs)}));
  }
}

TEST_F(Line, ChangeOfAModemLineEndsTheWait) {
  const struct {
    std::uint32_t before;
    std::uint32_t after;
    std::uint32_t events;
  } changes[] = {
      {0, INPUT_CTS, SERIAL_EV_CTS},
      {INPUT_DSR, 0, SERIAL_EV_DSR},
      {INPUT_DCD, INPUT_DSR | INPUT_CTS, SERIAL_EV_RLSD | SERIAL_EV_DSR | SERIAL_EV_CTS},
      {INPUT_RING, 0, SERIAL_EV_RING},
  };
  std::uint32_t call = 0;
  for (const auto& [before, after, events] : changes) {
    SetWaitMask(0);
    port_.SetModemInputs(before);
    SetWaitMask(SERIAL_EV_CTS | SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_RING);
    StartWait(++call);
    port_.SetModemInputs(after);
    ExpectEvents(call, events);
  }
}

TEST_F(Line, EventsOutsideTheMaskDoNotEndTheWait) {
  SetWaitMask(SERIAL_EV_BREAK | SERIAL_EV_ERR);
  StartWait(1);
  port_.SetModemInputs(INPUT_CTS);
  port_.Receive(ToBytes("x"));
  EXPECT_EQ(client_.Write(ToBytes("y")), 0u);
  port_.RaiseEvents(SERIAL_EV_ERR, SERIAL_ERROR_FRAMING);
  ExpectEvents(1, SERIAL_EV_ERR);

  const Bytes status = client_.IoControl(IOCTL_SERIAL_GET_COMMSTATUS, 20, {}).data;
  EXPECT_EQ(status, Join({U32(SERIAL_ERROR_FRAMING), U32(0), U32(1), U32(0), Bytes(4)}));
}

TEST_F(Line, ReceivedByteEndsTheWaitAndIsThereToRead) {
  SetWaitMask(SERIAL_EV_RXCHAR);
  StartWait(1);
  port_.Receive(ToBytes("x"));
  ExpectEvents(1, SERIAL_EV_RXCHAR);
  EXPECT_EQ(client_.Read(1), (PortResult{0, ToBytes("x")}));
}

TEST_F(Line, WriteEndsTheWaitForAnEmptyQueue) {
  SetWaitMask(SERIAL_EV_TXEMPTY);
  StartWait(1);
  EXPECT_TRUE(client_.Request(2, kWrite, Vector(ToBytes("x"))));
  auto replies = Replies(2);
  EXPECT_EQ(replies[1], Join({U32(0), Vector(U32(SERIAL_EV_TXEMPTY))}));
  EXPECT_EQ(replies[2], U32(0));
}

TEST_F(Line, EventBeforeTheWaitIsNotLost) {
  SetWaitMask(SERIAL_EV_BREAK | SERIAL_EV_RXCHAR);
  port_.RaiseEvents(SERIAL_EV_BREAK);
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_WAIT_ON_MASK, 4, {}),
            (PortResult{0, U32(SERIAL_EV_BREAK)}));
}

TEST_F(Line, NewMaskEndsTheWaitWithoutEvents) {
  for (const std::uint32_t mask : {std::uint32_t{SERIAL_EV_CTS}, 0u}) {
    SetWaitMask(SERIAL_EV_RXCHAR);
    StartWait(1);
    EXPECT_TRUE(
        client_.Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_SET_WAIT_MASK, 0, U32(mask))));
    auto replies = Replies(2);
    EXPECT_EQ(replies[1], Join({U32(0), Vector(U32(0))}));
    EXPECT_EQ(replies[2], Join({U32(0), Vector({})}));
  }
}

TEST_F(Line, SecondWaitIsRefusedByTheDriverAndLeavesTheFirst) {
  SetWaitMask(SERIAL_EV_RXCHAR);
  StartWait(1);
  EXPECT_TRUE(client_.Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4, {})));
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_WAIT_MASK, 4, {}),
            (PortResult{0, U32(SERIAL_EV_RXCHAR)}));
  port_.Receive(ToBytes("x"));
  ExpectEvents(1, SERIAL_EV_RXCHAR);
}

TEST_F(Line, WrittenBytesLeaveThePortAsTheyAre) {
  const Bytes large = Pattern(200'000);
  EXPECT_EQ(client_.Write(large), 0u);
  EXPECT_TRUE(port_.TakeSent() == large);

  // Sent in one burst, they must leave in the order of their arrival.
  Bytes burst;
  Bytes expected;
  constexpr std::uint32_t kWrites = 200;
  for (std::uint32_t call = 0; call < kWrites; ++call) {
    burst = Join({burst, Encode({call, kClientCode, kWrite, Vector(U16(call))})});
    expected = Join({expected, U16(call)});
  }
  EXPECT_TRUE(client_.Send(burst));
  EXPECT_EQ(Replies(kWrites).size(), std::size_t{kWrites});
  EXPECT_EQ(port_.TakeSent(), expected);
}

TEST_F(Line, ReadEndsAsItsTimeoutsSay) {
  constexpr std::uint32_t kHour = 3'600'000;
  const struct {
    const char* what;
    std::uint32_t interval, multiplier, constant;
    const char* arrived;
    const char* read;
    ULONGLONG milliseconds;  // it takes at least so long
  } rows[] = {
      {"at once, nothing there", kNoLimit, 0, 0, "", "", 0},
      {"at once, too little there", kNoLimit, 0, 0, "ab", "ab", 0},
      {"first byte, nothing there", kNoLimit, kNoLimit, 40, "", "", 40},
      {"first byte there", kNoLimit, kNoLimit, kHour, "ab", "ab", 0},
      {"total time, nothing there", 0, 0, 40, "", "", 40},
      {"total time, too little there", 0, 0, 40, "abc", "abc", 40},
      {"total time by size", 0, 10, 0, "abc", "abc", 40},
      {"total time, all there", 0, 0, kHour, "abcd", "abcd", 0},
      {"interval after the last byte", 40, 0, kHour, "abc", "abc", 40},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    client_.SetReadTimeouts(row.interval, row.multiplier, row.constant);
    port_.Receive(ToBytes(row.arrived));
    const ULONGLONG start = ::GetTickCount64();
    EXPECT_EQ(client_.Read(4), (PortResult{0, ToBytes(row.read)}));
    // The two clocks may differ by a tick.
    EXPECT_GE(::GetTickCount64() - start + 16, row.milliseconds);
  }
}

TEST_F(Line, ReadsAreFedInTheOrderOfTheirArrival) {
  client_.ReadsWaitForEver();
  EXPECT_TRUE(client_.Request(1, kRead, U32(3)));
  EXPECT_TRUE(client_.Request(2, kRead, U32(2)));
  EXPECT_TRUE(port_.ComesToHave({.reads = 2}));
  port_.Receive(ToBytes("ab"));
  port_.Receive(ToBytes("cde"));
  auto replies = Replies(2);
  EXPECT_EQ(replies[1], Join({U32(0), Vector(ToBytes("abc"))}));
  EXPECT_EQ(replies[2], Join({U32(0), Vector(ToBytes("de"))}));
}

TEST_F(Line, PurgedReadIsNeverAnswered) {
  client_.ReadsWaitForEver();
  EXPECT_TRUE(client_.Request(1, kRead, U32(3)));
  EXPECT_TRUE(port_.ComesToHave({.reads = 1}));
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_PURGE, 0, U32(SERIAL_PURGE_RXABORT)),
            (PortResult{0, {}}));
  port_.Receive(ToBytes("abc"));
  EXPECT_EQ(client_.Read(3), (PortResult{0, ToBytes("abc")}));
}

TEST_F(Line, WriteThatTheFarEndStopsWaits) {
  Control(IOCTL_SERIAL_SET_XOFF);
  EXPECT_TRUE(client_.Request(1, kWrite, Vector(ToBytes("held up"))));
  EXPECT_TRUE(port_.ComesToHave({.writes = 1}));
  EXPECT_TRUE(client_.Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_SET_XON, 0, {})));
  auto replies = Replies(2);
  EXPECT_EQ(replies[1], U32(0));
  EXPECT_EQ(port_.TakeSent(), ToBytes("held up"));
}

TEST_F(Line, EveryRequestInFlightHasItsOwnAnswer) {
  SetWaitMask(SERIAL_EV_RXCHAR);
  client_.ReadsWaitForEver();
  port_.Hold(REQUEST_WRITE);
  port_.Hold(IOCTL_SERIAL_GET_BAUD_RATE);
  StartWait(1);
  EXPECT_TRUE(client_.Request(2, kRead, U32(2)));
  EXPECT_TRUE(client_.Request(3, kWrite, Vector(ToBytes("late"))));
  EXPECT_TRUE(client_.Request(4, kIoControl, ControlArguments(IOCTL_SERIAL_GET_BAUD_RATE, 4, {})));
  EXPECT_TRUE(port_.ComesToHave({.reads = 1, .writes = 1, .controls = 2}));
  EXPECT_EQ(client_.Write(ToBytes("soon")), 0u);

  port_.Release();
  port_.Receive(ToBytes("ab"));
  auto replies = Replies(4);
  EXPECT_EQ(replies[1], Join({U32(0), Vector(U32(SERIAL_EV_RXCHAR))}));
  EXPECT_EQ(replies[2], Join({U32(0), Vector(ToBytes("ab"))}));
  EXPECT_EQ(replies[3], U32(0));
  EXPECT_EQ(replies[4], Join({U32(0), Vector(U32(9600))}));
  EXPECT_EQ(port_.TakeSent(), ToBytes("soonlate"));
}

TEST_F(Line, LoopFeedsModemLinesAndBytesBack) {
  port_.LoopBack();
  SetWaitMask(SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_CTS | SERIAL_EV_BREAK);
  const struct {
    std::uint32_t control;
    std::uint32_t events;
    std::uint32_t inputs;
  } steps[] = {
      {IOCTL_SERIAL_SET_DTR, SERIAL_EV_DSR | SERIAL_EV_RLSD, INPUT_DSR | INPUT_DCD},
      {IOCTL_SERIAL_SET_RTS, SERIAL_EV_CTS, INPUT_DSR | INPUT_DCD | INPUT_CTS},
      {IOCTL_SERIAL_SET_BREAK_ON, SERIAL_EV_BREAK, INPUT_DSR | INPUT_DCD | INPUT_CTS},
      {IOCTL_SERIAL_CLR_DTR, SERIAL_EV_DSR | SERIAL_EV_RLSD, INPUT_CTS},
  };
  for (const auto& [control, events, inputs] : steps) {
    Control(control);
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_WAIT_ON_MASK, 4, {}), (PortResult{0, U32(events)}));
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_MODEMSTATUS, 4, {}), (PortResult{0, U32(inputs)}));
  }
  EXPECT_EQ(client_.Write(ToBytes("echo")), 0u);
  EXPECT_EQ(client_.Read(4), (PortResult{0, ToBytes("echo")}));
}

TEST_F(Line, TwoClientsOnTwoPortsDoNotMix) {
  VirtualPort other_port(kOtherVirtualPort);
  RawClient other;
  EXPECT_EQ(other.OpenPort(kOtherVirtualPort), 0u);
  client_.ReadsWaitForEver();
  other.ReadsWaitForEver();
  EXPECT_TRUE(client_.Request(1, kRead, U32(3)));
  EXPECT_TRUE(other.Request(1, kRead, U32(3)));
  EXPECT_TRUE(port_.ComesToHave({.reads = 1}) && other_port.ComesToHave({.reads = 1}));
  other_port.Receive(ToBytes("two"));
  port_.Receive(ToBytes("one"));
  EXPECT_EQ(client_.Receive().payload, Join({U32(0), Vector(ToBytes("one"))}));
  EXPECT_EQ(other.Receive().payload, Join({U32(0), Vector(ToBytes("two"))}));
  EXPECT_EQ(client_.Write(ToBytes("to one")), 0u);
  EXPECT_EQ(other.Write(ToBytes("to two")), 0u);
  EXPECT_EQ(port_.TakeSent(), ToBytes("to one"));
  EXPECT_EQ(other_port.TakeSent(), ToBytes("to two"));
}

}  // namespace
}  // namespace system_test
