// Devices that fail, stop half way, vanish, or never answer. None of it may harm the session, other
// clients, or the end of the server. The port is one of the virtual serial driver.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"
#include "tests/virtual_port.h"

namespace system_test {
namespace {

constexpr std::uint32_t kAlreadyHoldsPort = 0x800700B7;
constexpr std::uint32_t kFileNotFound = 0x80070002;

// NTSTATUS values of devices.
constexpr std::uint32_t kStatusTimeout = 0x00000102;
constexpr std::uint32_t kStatusMoreData = 0x80000005;  // a warning
constexpr std::uint32_t kStatusDeviceNotConnected = 0xC000009D;
constexpr std::uint32_t kStatusIoDeviceError = 0xC0000185;
constexpr std::uint32_t kStatusNotSupported = 0xC00000BB;
constexpr std::uint32_t kStatusCancelled = 0xC0000120;

class DeviceFaults : public ::testing::Test {
 protected:
  DeviceFaults() {
    EXPECT_EQ(client_.OpenPort(kVirtualPort), 0u);
    client_.ReadsWaitForEver();
  }

  bool Starts(std::uint32_t call, std::uint16_t method, const Bytes& payload,
              const PendingRequests& then_pending) {
    return client_.Request(call, method, payload) && port_.ComesToHave(then_pending);
  }

  // A read, a write and a wait for events, all of which pend in the driver.
  void StartEverything() {
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_WAIT_MASK, 0, U32(SERIAL_EV_RXCHAR)).code, 0u);
    port_.Hold(REQUEST_WRITE);
    EXPECT_TRUE(Starts(1, kRead, U32(10), {.reads = 1}));
    EXPECT_TRUE(Starts(2, kWrite, Vector(ToBytes("held")), {.reads = 1, .writes = 1}));
    EXPECT_TRUE(Starts(3, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4, {}),
                       {.reads = 1, .writes = 1, .controls = 1}));
  }

  // The session answers, and has answered nothing that was sent before.
  void ExpectSessionLives() { EXPECT_EQ(client_.OpenPort(kVirtualPort), kAlreadyHoldsPort); }

  void ExpectPortWorks() {
    port_.Receive(ToBytes("in"));
    EXPECT_EQ(client_.Read(2), (PortResult{0, ToBytes("in")}));
    EXPECT_EQ(client_.Write(ToBytes("out")), 0u);
    EXPECT_EQ(port_.TakeSent(), ToBytes("out"));
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}), (PortResult{0, U32(9600)}));
  }

  static void ExpectOthersAreServed() {
    VirtualPort port(kOtherVirtualPort);
    RawClient other;
    EXPECT_EQ(other.OpenPort(kOtherVirtualPort), 0u);
    EXPECT_EQ(other.Write(ToBytes("x")), 0u);
    EXPECT_EQ(port.TakeSent(), ToBytes("x"));
  }

  VirtualPort port_;
  ServerProcess server_;
  RawClient client_;
};

TEST_F(DeviceFaults, RequestThatFailsIsNotAnsweredAndTheNextOnesAre) {
  for (const std::uint32_t status :
       {kStatusMoreData, kStatusIoDeviceError, kStatusDeviceNotConnected, kStatusNotSupported,
        kStatusCancelled}) {
    SCOPED_TRACE(status);
    port_.Fail(REQUEST_READ, status);
    port_.Fail(REQUEST_WRITE, status);
    port_.Fail(IOCTL_SERIAL_GET_MODEMSTATUS, status);
    EXPECT_TRUE(client_.Request(1, kRead, U32(1)));
    EXPECT_TRUE(client_.Request(2, kWrite, Vector(ToBytes("lost"))));
    EXPECT_TRUE(
        client_.Request(3, kIoControl, ControlArguments(IOCTL_SERIAL_GET_MODEMSTATUS, 4, {})));
    ExpectPortWorks();
    port_.Reset();
    client_.ReadsWaitForEver();
  }
}

// A time-out is a success of which less is known.
TEST_F(DeviceFaults, WriteThatTimesOutIsAnswered) {
  port_.Fail(REQUEST_WRITE, kStatusTimeout);
  EXPECT_EQ(client_.Write(ToBytes("lost")), 0u);
}

TEST_F(DeviceFaults, PartialTransfersKeepWhatWasMoved) {
  port_.Cut(REQUEST_READ, 2);
  port_.Receive(ToBytes("abc"));
  EXPECT_EQ(client_.Read(3), (PortResult{0, ToBytes("ab")}));
  EXPECT_EQ(client_.Read(1), (PortResult{0, ToBytes("c")}));

  port_.Cut(REQUEST_WRITE, 3);
  EXPECT_EQ(client_.Write(ToBytes("abcdef")), 0u);
  EXPECT_EQ(port_.TakeSent(), ToBytes("abc"));

  port_.Cut(IOCTL_SERIAL_GET_BAUD_RATE, 3);
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}), (PortResult{0, {0x80, 0x25, 0}}));
}

TEST_F(DeviceFaults, SessionOutlivesADeviceThatVanishes) {
  const struct {
    const char* under;
    std::uint16_t method;
    Bytes payload;
    PendingRequests pending;
  } rows[] = {
      {"a read", kRead, U32(1), {.reads = 1}},
      {"a write", kWrite, Vector(ToBytes("x")), {.writes = 1}},
      {"a control", kIoControl, ControlArguments(IOCTL_SERIAL_GET_CHARS, 6, {}), {.controls = 1}},
  };
  for (const auto& [under, method, payload, pending] : rows) {
    SCOPED_TRACE(under);
    port_.Hold(REQUEST_READ);
    port_.Hold(REQUEST_WRITE);
    port_.Hold(IOCTL_SERIAL_GET_CHARS);
    EXPECT_TRUE(Starts(1, method, payload, pending));
    port_.Vanish();
    EXPECT_TRUE(client_.Request(2, kRead, U32(1)));
    EXPECT_TRUE(client_.Request(3, kWrite, Vector(ToBytes("x"))));
    EXPECT_TRUE(client_.Request(4, kIoControl, ControlArguments(IOCTL_SERIAL_GET_CHARS, 6, {})));
    ExpectSessionLives();
    ExpectOthersAreServed();
    port_.Reset();
    client_.ReadsWaitForEver();
    ExpectPortWorks();
  }
}

TEST_F(DeviceFaults, VanishedPortCanBeOpenedWhenItIsBack) {
  StartEverything();
  port_.Vanish();
  client_.Disconnect();
  EXPECT_TRUE(port_.ComesToBeClosed());
  RawClient next;
  EXPECT_EQ(next.OpenPort(kVirtualPort), kFileNotFound);
  port_.ComeBack();
  EXPECT_EQ(next.OpenPort(kVirtualPort), 0u);
  EXPECT_EQ(next.Write(ToBytes("x")), 0u);
  EXPECT_EQ(port_.TakeSent(), ToBytes("x"));
}

TEST_F(DeviceFaults, DisconnectEndsWhatPendsAndThenClosesThePort) {
  StartEverything();
  port_.TakeJournal();
  client_.Disconnect();
  EXPECT_TRUE(port_.ComesToBeClosed());
  EXPECT_TRUE(port_.ComesToHave({}));

  // What the client has left unsent is aborted, but nothing is cleared that the driver has taken.
  EXPECT_EQ(port_.TakeJournal(),
            (std::vector<DriverRequest>{
                {IOCTL_SERIAL_SET_WAIT_MASK, 4, U32(0)},
                {IOCTL_SERIAL_PURGE, 4, U32(SERIAL_PURGE_TXABORT | SERIAL_PURGE_RXABORT)},
                {REQUEST_CLOSE, 0, {}},
            }));
  EXPECT_EQ(port_.TakeSent(), Bytes());
  EXPECT_EQ(RawClient().OpenPort(kVirtualPort), 0u);
}

// A driver may lose a request and not even let it be cancelled. The port is closed all the same,
// and the request's late end concerns nobody.
TEST_F(DeviceFaults, RequestThatNeverEndsHoldsUpNoDeparture) {
  port_.HoldForGood(REQUEST_READ);
  port_.HoldForGood(IOCTL_SERIAL_SET_WAIT_MASK);
  EXPECT_TRUE(Starts(1, kRead, U32(1), {.reads = 1}));
  client_.Disconnect();
  EXPECT_TRUE(server_.Logs(L"INFO", L" disconnected"));
  EXPECT_TRUE(port_.ComesToBeClosed());
  EXPECT_TRUE(port_.ComesToHave({.reads = 1, .controls = 1}));
  ExpectOthersAreServed();

  client_ = RawClient();
  EXPECT_EQ(client_.OpenPort(kVirtualPort), 0u);
  port_.Release();
  EXPECT_TRUE(port_.ComesToHave({}));
  ExpectPortWorks();
}

TEST_F(DeviceFaults, RequestThatNeverEndsHoldsUpNoStop) {
  port_.HoldForGood(REQUEST_READ);
  port_.HoldForGood(IOCTL_SERIAL_SET_WAIT_MASK);
  EXPECT_TRUE(Starts(1, kRead, U32(1), {.reads = 1}));
  server_.Stop();
}

// Half of the clients leave before their port is open, the others while the driver gets their
// requests.
TEST_F(DeviceFaults, DisconnectAmidABurstLeavesNothing) {
  Bytes burst;
  for (std::uint32_t call = 0; call < 10; ++call) {
    burst = Join(
        {burst, Encode({call, kClientCode, kRead, U32(10)}),
         Encode({call, kClientCode, kWrite, Vector(ToBytes("x"))}),
         Encode({call, kClientCode, kIoControl, ControlArguments(IOCTL_SERIAL_GET_CHARS, 6, {})})});
  }
  VirtualPort port(kOtherVirtualPort);
  port.Hold(REQUEST_WRITE, FAULT_ALL);
  const std::size_t handles = server_.program().HandleCount();
  for (std::size_t session = 0; session < 2 * kPoolHandles; ++session) {
    RawClient leaving;
    if (session % 2 == 0) {
      EXPECT_TRUE(leaving.Request(1, kOpenPort, U32(kOtherVirtualPort)));
    } else {
      EXPECT_EQ(leaving.OpenPort(kOtherVirtualPort), 0u);
      EXPECT_TRUE(leaving.Send(burst));
    }
  }
  EXPECT_TRUE(server_.HandlesComeDownTo(handles + kPoolHandles));
  EXPECT_TRUE(port.ComesToBeClosed());
  EXPECT_TRUE(port.ComesToHave({}));
  ExpectPortWorks();
}

TEST_F(DeviceFaults, StopEndsWhatPendsInTheDriver) {
  StartEverything();
  server_.Stop();
  EXPECT_TRUE(port_.ComesToHave({}));
  EXPECT_TRUE(port_.ComesToBeClosed());
}

}  // namespace
}  // namespace system_test
