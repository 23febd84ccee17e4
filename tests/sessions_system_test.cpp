// Many clients, and clients that behave badly towards the others.
#include <gtest/gtest.h>

#include <list>
#include <set>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

constexpr std::uint32_t kNotConnected = 0x800708CA;

// What a server must come down to again, whatever its clients have done.
class ManyClients : public ::testing::Test {
 protected:
  ManyClients() {
    {
      std::list<RawClient> warm_up(8);
      for (RawClient& client : warm_up)
        EXPECT_EQ(client.Read(1).code, kNotConnected);
    }
    EXPECT_TRUE(server_.AllClientsDeparted());
    handles_ = server_.program().HandleCount();
    memory_ = server_.program().MemoryInUse();
  }

  void ExpectNothingLeft(std::size_t clients) {
    EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
    EXPECT_TRUE(server_.AllClientsDeparted());
    EXPECT_TRUE(server_.HandlesComeDownTo(handles_ + kPoolHandles))
        << server_.program().HandleCount() << " handles, once there were " << handles_;
    EXPECT_TRUE(Eventually([&] {
      return server_.program().MemoryInUse() <= memory_ + kPoolMemory;
    })) << server_.program().MemoryInUse()
        << " bytes, once there were " << memory_;
    std::cout << clients << " clients: " << handles_ << " to " << server_.program().HandleCount()
              << " handles, " << memory_ << " to " << server_.program().MemoryInUse() << " bytes\n";
  }

  ServerProcess server_{L"--log-level info"};
  std::size_t handles_ = 0;
  std::size_t memory_ = 0;

 private:
  // For the threads that the pool has made and heaps that have grown; five thousand sessions, or
  // what they had, would be more.
  static constexpr std::size_t kPoolMemory = 4u << 20;
};

TEST_F(ManyClients, ThatLeaveAtOnceCostNothing) {
  for (int i = 0; i < 2000; ++i)
    RawClient();
  ExpectNothingLeft(2000);
}

TEST_F(ManyClients, ThatOpenAndLeaveCostNothing) {
  for (int i = 0; i < 5000 && !HasFailure(); ++i)
    EXPECT_EQ(RawClient().OpenPort(LoopbackPort()), 0u);
  ExpectNothingLeft(5000);
}

TEST_F(ManyClients, AtOnceAreAllServed) {
  constexpr std::uint32_t kClients = 90;
  {
    std::list<RawClient> clients(kClients);
    for (RawClient& client : clients)
      EXPECT_TRUE(client.Request(1, kRead, U32(1)));
    for (RawClient& client : clients)
      EXPECT_EQ(client.Receive().payload, Join({U32(kNotConnected), U32(0)}));
  }
  ExpectNothingLeft(kClients);
}

// As many as the server has instances of its pipe waiting, and more.
TEST_F(ManyClients, ThatNeverFinishTheirHeaderHoldUpNobody) {
  std::list<RawClient> clients(20);
  for (RawClient& client : clients)
    EXPECT_TRUE(client.Send(Bytes(6)));
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
  clients.clear();
  ExpectNothingLeft(20);
}

TEST_F(ManyClients, RequestsWithoutReadingAreAllAnsweredInTheEnd) {
  constexpr std::uint32_t kRequests = 10'000;
  RawClient client;
  Bytes requests;
  for (std::uint32_t call = 0; call < kRequests; ++call) {
    const Bytes request = Encode({call, kClientCode, kRead, U32(1)});
    requests.insert(requests.end(), request.begin(), request.end());
  }
  EXPECT_TRUE(client.Send(requests));
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
  std::set<std::uint32_t> answered;
  for (std::uint32_t replies = 0; replies < kRequests && !HasFailure(); ++replies)
    answered.insert(client.Receive().call);
  EXPECT_EQ(answered.size(), kRequests);
  client.Disconnect();
  ExpectNothingLeft(1);
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
