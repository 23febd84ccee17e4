// Clients that send what no client should, or read nothing.
#include <gtest/gtest.h>

#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"
#include "tests/support/server_process.h"

namespace system_test {
namespace {

TEST(BadMessages, AreNotAnsweredAndLeaveTheSessionAlive) {
  const ServerProcess server;
  const struct {
    const char* name;
    Message message;
  } rows[] = {
      {"open without a number", {1, kClientCode, kOpenPort, {}}},
      {"open with half a number", {1, kClientCode, kOpenPort, U16(5)}},
      {"control without input", {1, kClientCode, kIoControl, Join({U32(1), U32(2)})}},
      {"write without a count", {1, kClientCode, kWrite, {1, 0, 0}}},
      {"write count one too many", {1, kClientCode, kWrite, Join({U32(4), ToBytes("abc")})}},
      {"write count of 4 GiB", {1, kClientCode, kWrite, Join({U32(~0u), ToBytes("abc")})}},
      {"control count that wraps the cursor",
       {1, kClientCode, kIoControl, Join({U32(1), U32(2), U32(0xFFFFFFF4)})}},
      {"method after the last", {1, kClientCode, 5, U32(0)}},
      {"highest method", {1, kClientCode, 0xFFFF, U32(0)}},
      {"neither request nor reply", {1, 0xFFFF, kRead, U32(1)}},
      {"reply that nobody awaits", {1, 0, kRead, U32(1)}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawClient client;
    for (int times = 0; times < 3; ++times)
      EXPECT_TRUE(client.Send(Encode(row.message)));
    EXPECT_EQ(client.Call(kRead, Join({U32(1), ToBytes("surplus")})),
              Join({U32(kNotConnected), U32(0)}));
  }
  EXPECT_TRUE(server.Logs(L"INFO", L"Client Unknown disconnected", std::size(rows)));
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

// An idle server would have answered all that was asked for well within half a second.
TEST_F(SilentReader, HoldsUpNoOtherClientAndDoesNotFillTheMemory) {
  EXPECT_EQ(RawClient().OpenPort(LoopbackPort()), 0u);
  constexpr std::size_t kEnough = 40u << 20;  // of the 64 MiB that the client asked for
  EXPECT_FALSE(Eventually([&] { return server_.program().MemoryInUse() > kEnough; }, 500));
  for (int replies = 0; replies < 64; ++replies)
    EXPECT_EQ(silent_.Receive().payload.size(), 8u + kFilePortSize);
}

TEST_F(SilentReader, HoldsUpNeitherItsDepartureNorTheStop) {
  RawClient other;
  silent_.Disconnect();
  EXPECT_TRUE(Eventually([&] { return other.OpenPort(kFilePort) == 0; }));
  for (std::uint32_t call = 0; call < 64; ++call)
    EXPECT_TRUE(other.Request(call, kRead, U32(kFilePortSize)));
  server_.Stop();
  EXPECT_EQ(server_.Count(L"INFO", L" disconnected"), 2u);
}

}  // namespace
}  // namespace system_test
