// Clients that send what no client should.
#include <gtest/gtest.h>

#include <random>

#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

constexpr std::uint32_t kNotConnected = 0x800708CA;

void ExpectServed(RawClient& client) {
  EXPECT_EQ(client.Read(1), (PortResult{kNotConnected, {}}));
}

struct BadMessage {
  const char* name;
  Message message;
};

void PrintTo(const BadMessage& bad, std::ostream* out) {
  *out << bad.message;
}

class UnansweredMessage : public ::testing::TestWithParam<BadMessage> {};

TEST_P(UnansweredMessage, LeavesTheSessionAlive) {
  ServerProcess server;
  RawClient client;
  for (int times = 0; times < 3; ++times)
    EXPECT_TRUE(client.Send(Encode(GetParam().message)));
  ExpectServed(client);
  client.Disconnect();
  EXPECT_TRUE(server.Logs(L"INFO", L"Client Unknown disconnected"));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UnansweredMessage,
    ::testing::Values(
        BadMessage{"OpenPortWithoutNumber", {1, kClientCode, kOpenPort, {}}},
        BadMessage{"OpenPortWithHalfANumber", {1, kClientCode, kOpenPort, U16(5)}},
        BadMessage{"ControlWithoutInput", {1, kClientCode, kIoControl, Join({U32(1), U32(2)})}},
        BadMessage{"WriteWithoutCount", {1, kClientCode, kWrite, {1, 0, 0}}},
        BadMessage{"WriteCountOneTooMany",
                   {1, kClientCode, kWrite, Join({U32(4), ToBytes("abc")})}},
        BadMessage{"WriteCountOfFourGiB",
                   {1, kClientCode, kWrite, Join({U32(0xFFFFFFFF), ToBytes("abc")})}},
        BadMessage{"ControlCountThatWrapsTheCursor",
                   {1, kClientCode, kIoControl, Join({U32(1), U32(2), U32(0xFFFFFFF4)})}},
        BadMessage{"MethodAfterTheLast", {1, kClientCode, 5, U32(0)}},
        BadMessage{"HighestMethod", {1, kClientCode, 0xFFFF, U32(0)}},
        BadMessage{"NeitherRequestNorReply", {1, 0xFFFF, kRead, U32(1)}},
        BadMessage{"ReplyThatNobodyAwaits", {1, 0, kRead, U32(1)}}),
    [](const auto& param_info) { return param_info.param.name; });

TEST(BadMessages, SurplusPayloadIsIgnored) {
  ServerProcess server;
  RawClient client;
  EXPECT_EQ(client.Call(kRead, Join({U32(1), ToBytes("surplus")})),
            Join({U32(kNotConnected), U32(0)}));
  EXPECT_EQ(client.Call(kRead, U32(1)), Join({U32(kNotConnected), U32(0)}));
}

// Whether the server finds memory for such a message or not, it costs this client at the most.
TEST(BadMessages, AnnouncementOfFourGiBHarmsNobodyElse) {
  ServerProcess server;
  RawClient other;
  RawClient client;
  EXPECT_TRUE(client.Send(Header(1, kClientCode, kWrite, 0xFFFFFFFF)));
  ExpectServed(other);
  client.Disconnect();
  EXPECT_TRUE(server.Logs(L"INFO", L"Client Unknown disconnected"));
  ExpectServed(other);
}

TEST(BadMessages, RequestCutAtEveryByteEndsItsSessionOnly) {
  ServerProcess server;
  RawClient other;
  ExpectServed(other);
  const Bytes request =
      Encode({1, kClientCode, kIoControl, ControlArguments(0x1B0050, 4, ToBytes("abcd"))});
  for (std::size_t size = 0; size < request.size(); ++size) {
    RawClient client;
    ExpectServed(client);
    EXPECT_TRUE(client.Send(Bytes(request.begin(), request.begin() + std::ptrdiff_t(size))));
  }
  ExpectServed(other);
  other.Disconnect();
  EXPECT_TRUE(server.Logs(L"INFO", L"Client Unknown disconnected", request.size() + 1));
}

// Messages of which nothing may be believed: codes, methods, contents, and often the length. They
// never reach a port, so no size in them is one of memory to be set aside.
class RandomMessages {
 public:
  Bytes Next() {
    Bytes payload(Below(40));
    for (auto& byte : payload)
      byte = static_cast<std::uint8_t>(Below(256));
    if (Below(2) == 0 && payload.size() >= 4)  // often a plausible count or number
      payload[1] = payload[2] = payload[3] = 0;
    const auto method = static_cast<std::uint16_t>(Below(4) == 0 ? Below(0x10000) : 1 + Below(4));
    const auto length = static_cast<std::uint32_t>(payload.size());
    return Join({Header(Below(8), Code(), method, Below(16) == 0 ? Below(60) : length), payload});
  }

  std::uint32_t Below(std::uint32_t limit) {
    return static_cast<std::uint32_t>(generator_() % limit);
  }

 private:
  std::uint16_t Code() {
    switch (Below(8)) {
      case 0:
        return 0;
      case 1:
        return 0xFFFF;
      default:
        return static_cast<std::uint16_t>(1 + Below(0xFFFE));
    }
  }

  std::mt19937 generator_{20240305};
};

TEST(BadMessages, RandomOnesLeaveNothingBehind) {
  ServerProcess server(L"--share-ports " + std::to_wstring(kMissingPort));
  {
    RawClient first;
    ExpectServed(first);
  }
  EXPECT_TRUE(server.AllClientsDeparted());
  const std::size_t handles = server.program().HandleCount();
  RandomMessages messages;
  for (int session = 0; session < 60; ++session) {
    RawClient client;
    ExpectServed(client);
    for (std::uint32_t rest = messages.Below(60); rest != 0; --rest) {
      if (!client.Send(messages.Next()))
        break;  // the server may hang up
    }
  }
  RawClient fresh;
  ExpectServed(fresh);
  fresh.Disconnect();
  EXPECT_TRUE(server.Logs(L"INFO", L" disconnected", 62));
  EXPECT_TRUE(server.HandlesComeDownTo(handles + kPoolHandles))
      << server.program().HandleCount() << " handles, once there were " << handles;
}

}  // namespace
}  // namespace system_test
