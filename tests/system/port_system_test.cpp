// Which ports a client may open, when a port is free again, and what the device of one does: it
// answers late or never, fails, stops half way, or vanishes.
#include <gtest/gtest.h>

#include <map>

#include "platform/serial.h"
#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"
#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

constexpr std::uint32_t kStatusTimeout = 0x00000102;  // a success of which less is known

// NTSTATUS values of devices: a warning, and four errors.
constexpr std::uint32_t kFailures[] = {0x80000005, 0xC0000185, 0xC000009D, 0xC00000BB, 0xC0000120};

TEST(OpenPort, IsRefusedWhereItMustAndLogged) {
  const std::wstring loopback = std::to_wstring(LoopbackPort());
  ServerProcess server(L"--share-ports 6,77," + loopback);
  RawClient client;
  EXPECT_EQ(client.Call(kIoControl, ControlArguments(IOCTL_SERIAL_GET_BAUD_RATE, 4, {})),
            Join({U32(kNotConnected), U32(0)}));
  EXPECT_EQ(client.Call(kWrite, Vector(ToBytes("x"))), U32(kNotConnected));
  for (const std::uint32_t number : {0u, 200u, 0xFFFFFFFFu})
    EXPECT_EQ(client.OpenPort(number), kAccessDenied) << number;
  EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
  RawClient holder;
  EXPECT_EQ(holder.OpenPort(kFilePort), 0u);
  EXPECT_EQ(client.OpenPort(kFilePort), kPortInUse);

  const Bytes open = Encode({1, kClientCode, kOpenPort, U32(LoopbackPort())});
  EXPECT_TRUE(client.Send(Join({open, open})));  // of two sent together one is refused
  const Bytes replies = Join({client.Receive().payload, client.Receive().payload});
  EXPECT_TRUE(replies == Join({U32(0), U32(kAlreadyHoldsPort)}) ||
              replies == Join({U32(kAlreadyHoldsPort), U32(0)}));
  EXPECT_EQ(client.OpenPort(kMissingPort), kAlreadyHoldsPort);
  holder.Disconnect();
  RawClient next;
  EXPECT_TRUE(Eventually([&] { return next.OpenPort(kFilePort) == 0; }));

  wchar_t account[256] = {};
  DWORD size = 256;
  Require(::GetUserNameW(account, &size), "GetUserNameW");
  const std::wstring name = L"\\" + std::wstring(account);
  EXPECT_TRUE(server.Logs(L"DEBUG", L"COM200 sharing is prohibited"));
  EXPECT_TRUE(
      server.Logs(L"DEBUG", name + L" gets error \"0x80070002\" while trying to connect to COM77"));
  EXPECT_TRUE(server.Logs(L"INFO", name + L" has just connected to COM" + loopback));
  EXPECT_TRUE(server.Logs(L"INFO", name + L" disconnected"));
}

// Requests in one burst are served side by side; each must be answered once, by a whole message.
TEST(Loopback, BringsEveryByteBackBesideManyOtherRequests) {
  const ServerProcess server;
  RawClient client;
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
  client.ReadsWait();
  const Bytes sent = Pattern(200'000);
  EXPECT_TRUE(client.Request(1, kRead, U32(static_cast<std::uint32_t>(sent.size()))));
  EXPECT_TRUE(client.Request(2, kWrite, Vector(sent)));
  Bytes burst;
  for (std::uint32_t call = 3; call < 400; ++call)
    burst = Join({burst, Encode({call, kClientCode, kIoControl,
                                 ControlArguments(IOCTL_SERIAL_GET_BAUD_RATE, 4, {})})});
  EXPECT_TRUE(client.Send(burst));
  std::map<std::uint32_t, int> answers;
  Bytes received;
  while (answers.size() < 399 || received.size() < sent.size()) {
    const Message reply = client.Receive();
    EXPECT_EQ(U32At(reply.payload, 0), 0u);
    EXPECT_EQ(++answers[reply.call], 1);
    if (reply.call != 1)
      continue;
    received.insert(received.end(), reply.payload.begin() + 8, reply.payload.end());
    if (received.size() < sent.size()) {
      answers.erase(1);  // Wine ends a read with what is there
      EXPECT_TRUE(client.Request(1, kRead, U32(200'000)));
    }
  }
  EXPECT_TRUE(received == sent);
}

class Device : public ::testing::Test {
 protected:
  Device() {
    EXPECT_EQ(client_.OpenPort(kVirtualPort), 0u);
    client_.ReadsWait();
  }

  bool Starts(std::uint32_t call, std::uint16_t method, const Bytes& payload,
              const PendingRequests& then_pending) {
    return client_.Request(call, method, payload) && port_.ComesToHave(then_pending);
  }

  // A read, a write and a wait for events, all of which pend in the driver.
  void StartEverything() {
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_WAIT_MASK, 0, U32(SERIAL_EV_RXCHAR)).code, 0u);
    port_.Fault(REQUEST_WRITE, FAULT_HOLD);
    EXPECT_TRUE(Starts(1, kRead, U32(2), {.reads = 1}));
    EXPECT_TRUE(Starts(2, kWrite, Vector(ToBytes("held")), {.reads = 1, .writes = 1}));
    EXPECT_TRUE(Starts(3, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4, {}),
                       {.reads = 1, .writes = 1, .controls = 1}));
  }

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

TEST_F(Device, AnswersEveryRequestInFlight) {
  StartEverything();
  EXPECT_EQ(client_.Write(ToBytes("soon")), 0u);
  port_.Release();
  port_.Receive(ToBytes("ab"));
  std::map<std::uint32_t, Bytes> replies;
  for (int i = 0; i < 3; ++i) {
    Message reply = client_.Receive();
    replies[reply.call] = std::move(reply.payload);
  }
  EXPECT_EQ(replies[1], Join({U32(0), Vector(ToBytes("ab"))}));
  EXPECT_EQ(replies[2], U32(0));
  EXPECT_EQ(replies[3], Join({U32(0), Vector(U32(SERIAL_EV_RXCHAR))}));
  EXPECT_EQ(port_.TakeSent(), ToBytes("soonheld"));
}

TEST_F(Device, FailureIsNotAnsweredAndTheNextRequestsAre) {
  for (const std::uint32_t status : kFailures) {
    SCOPED_TRACE(status);
    for (const std::uint32_t kind : {std::uint32_t{REQUEST_READ}, std::uint32_t{REQUEST_WRITE},
                                     std::uint32_t{IOCTL_SERIAL_GET_MODEMSTATUS}})
      port_.Fault(kind, FAULT_FAIL, status);
    EXPECT_TRUE(client_.Request(1, kRead, U32(1)));
    EXPECT_TRUE(client_.Request(2, kWrite, Vector(ToBytes("lost"))));
    EXPECT_TRUE(
        client_.Request(3, kIoControl, ControlArguments(IOCTL_SERIAL_GET_MODEMSTATUS, 4, {})));
    ExpectPortWorks();
    port_.Reset();
  }
}

TEST_F(Device, TimeoutsAndPartialTransfersKeepWhatWasMoved) {
  port_.Fault(REQUEST_WRITE, FAULT_FAIL, kStatusTimeout);
  EXPECT_EQ(client_.Write(ToBytes("lost")), 0u);
  port_.Fault(REQUEST_WRITE, FAULT_CUT, 3);
  EXPECT_EQ(client_.Write(ToBytes("abcdef")), 0u);
  EXPECT_EQ(port_.TakeSent(), ToBytes("abc"));
  port_.Fault(IOCTL_SERIAL_GET_BAUD_RATE, FAULT_CUT, 3);
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}), (PortResult{0, {0x80, 0x25, 0}}));
  client_.ReadsWait(30);
  EXPECT_EQ(client_.Read(16), (PortResult{0, {}}));
  port_.Receive(ToBytes("abc"));
  EXPECT_EQ(client_.Read(16), (PortResult{0, ToBytes("abc")}));
}

TEST_F(Device, VanishesUnderEveryRequestAndComesBack) {
  StartEverything();
  port_.Vanish();
  EXPECT_TRUE(client_.Request(4, kRead, U32(1)));
  EXPECT_EQ(client_.OpenPort(kVirtualPort), kAlreadyHoldsPort);  // nothing else is answered
  ExpectOthersAreServed();
  client_.Disconnect();
  EXPECT_TRUE(port_.ComesToBeClosed());
  client_ = RawClient();
  EXPECT_EQ(client_.OpenPort(kVirtualPort), kFileNotFound);
  port_.ComeBack();
  EXPECT_EQ(client_.OpenPort(kVirtualPort), 0u);
  client_.ReadsWait();
  ExpectPortWorks();
}

// What the client has left unsent is aborted, but nothing is cleared that the driver has taken.
TEST_F(Device, IsClosedByADepartureAfterWhatPends) {
  StartEverything();
  port_.TakeJournal();
  client_.Disconnect();
  EXPECT_TRUE(port_.ComesToBeClosed());
  EXPECT_TRUE(port_.ComesToHave({}));
  EXPECT_EQ(port_.TakeJournal(),
            (std::vector<DriverRequest>{
                {IOCTL_SERIAL_SET_WAIT_MASK, 4, U32(0)},
                {IOCTL_SERIAL_PURGE, 4, U32(SERIAL_PURGE_TXABORT | SERIAL_PURGE_RXABORT)},
                {REQUEST_CLOSE, 0, {}},
            }));
  EXPECT_EQ(port_.TakeSent(), Bytes());
}

TEST_F(Device, IsClosedByTheStop) {
  StartEverything();
  server_.Stop();
  EXPECT_TRUE(port_.ComesToHave({}));
  EXPECT_TRUE(port_.ComesToBeClosed());
}

// A driver may lose a request and not even let it be cancelled. The port is closed all the same,
// and the request's late end concerns nobody.
TEST_F(Device, ThatNeverAnswersHoldsUpNeitherDepartureNorStop) {
  port_.Fault(REQUEST_READ, FAULT_HOLD_FOR_GOOD, 0, 2);
  port_.Fault(IOCTL_SERIAL_SET_WAIT_MASK, FAULT_HOLD_FOR_GOOD, 0, 2);
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
  EXPECT_TRUE(Starts(1, kRead, U32(1), {.reads = 1}));
  server_.Stop();
}

}  // namespace
}  // namespace system_test
