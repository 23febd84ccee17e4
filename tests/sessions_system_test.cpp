// Many clients, and clients that behave badly towards the others.
#include <gtest/gtest.h>

#include <list>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

constexpr std::uint32_t kNotConnected = 0x800708CA;

TEST(Sessions, ClientsThatLeaveAtOnceCostNothing) {
  ServerProcess server;
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
  EXPECT_TRUE(server.Logs(L"INFO", L" disconnected"));
  const std::size_t handles = server.program().HandleCount();
  for (int i = 0; i < 150; ++i)
    RawClient();
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
  EXPECT_TRUE(server.AllClientsDeparted());
  EXPECT_TRUE(server.HandlesComeDownTo(handles + kPoolHandles))
      << server.program().HandleCount() << " handles, once there were " << handles;
}

// A client cannot be answered more than it reads: the server stops reading its requests then, and
// serves the others as before.
class SilentReader : public ::testing::Test {
 protected:
  SilentReader() {
    EXPECT_EQ(silent_.OpenPort(kFilePort), 0u);
    for (std::uint32_t call = 0; call < 64; ++call)
      EXPECT_TRUE(silent_.Request(call, kRead, U32(kFilePortSize)));
  }

  ServerProcess server_;
  RawClient silent_;
};

TEST_F(SilentReader, HoldsUpNoOtherClient) {
  EXPECT_EQ(RawClient().OpenPort(LoopbackPort()), 0u);
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
}

// An idle server would have read and answered all that was asked for well within this time.
TEST_F(SilentReader, DoesNotFillTheMemory) {
  constexpr std::size_t kEnough = 40u << 20;  // of the 64 MiB that the client asked for
  EXPECT_FALSE(Eventually([&] { return server_.program().MemoryInUse() > kEnough; }, 500));
}

TEST_F(SilentReader, GetsEveryReplyOnceItReads) {
  for (int replies = 0; replies < 64 && !HasFailure(); ++replies)
    EXPECT_EQ(silent_.Receive().payload.size(), 8u + kFilePortSize);
}

TEST_F(SilentReader, HoldsUpNoStop) {
  server_.Stop();
  EXPECT_EQ(server_.Count(L"INFO", L" disconnected"), 1u);
}

TEST_F(SilentReader, LeavesNothingWhenItGoes) {
  silent_.Disconnect();
  EXPECT_TRUE(server_.Logs(L"INFO", L" disconnected"));
  EXPECT_EQ(RawClient().OpenPort(kFilePort), 0u);
}

// On Windows only the first of them would get the port; Wine opens a terminal as often as asked.
TEST(Sessions, StopEndsSixtyBusyOnesSoon) {
  constexpr int kClients = 60;
  ServerProcess server;
  std::list<RawClient> clients;
  for (int i = 0; i < kClients; ++i) {
    RawClient& client = clients.emplace_back();
    client.OpenPort(LoopbackPort());
    EXPECT_TRUE(client.Request(
        1, kIoControl, ControlArguments(IOCTL_SERIAL_SET_TIMEOUTS, 0, ReadTimeouts(0, 0, 0))));
    EXPECT_TRUE(client.Request(2, kRead, U32(1000)));
    EXPECT_TRUE(client.Request(3, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4, {})));
    EXPECT_TRUE(client.Request(4, kRead, U32(1000)));
  }
  const ULONGLONG start = ::GetTickCount64();
  server.Stop();
  const ULONGLONG milliseconds = ::GetTickCount64() - start;
  RecordProperty("stop_milliseconds", std::to_string(milliseconds));
  std::cout << "stopped with " << kClients << " busy clients in " << milliseconds << " ms\n";
  EXPECT_EQ(server.Count(L"INFO", L"Client connected"), std::size_t{kClients});
  EXPECT_EQ(server.Count(L"INFO", L" disconnected"), std::size_t{kClients});
  const auto log = server.Log();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[log.size() - 2].message, kStopped);
  EXPECT_EQ(log.back(), (LogLine{L"=====", L"=====", L"====="}));
  for (RawClient& client : clients)
    EXPECT_TRUE(client.ServerHangsUp());
}

}  // namespace
}  // namespace system_test
