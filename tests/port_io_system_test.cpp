// Controls, writes and reads of an open port. The port is a terminal that echoes.
#include <gtest/gtest.h>

#include <map>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

class PortIo : public ::testing::Test {
 protected:
  PortIo() {
    EXPECT_EQ(client_.OpenPort(LoopbackPort()), 0u)
        << "COM" << LoopbackPort() << " must echo: source tools/setup.sh; make_loopback "
        << LoopbackPort();
    client_.ReadsWaitForEver();
  }

  ServerProcess server_;
  RawClient client_;
};

TEST_F(PortIo, ReadThatTimesOutSucceedsWithoutBytes) {
  client_.SetReadTimeouts(0, 0, 30);
  EXPECT_EQ(client_.Read(16), (PortResult{0, {}}));
}

TEST_F(PortIo, ReadThatTimesOutKeepsTheBytesSoFar) {
  client_.SetReadTimeouts(0, 0, 30);
  EXPECT_EQ(client_.Write(ToBytes("abc")), 0u);
  Bytes arrived;
  EXPECT_TRUE(Eventually([&] {
    const PortResult result = client_.Read(16);
    EXPECT_EQ(result.code, 0u);
    arrived = Join({arrived, result.data});
    return arrived.size() >= 3;
  }));
  EXPECT_EQ(arrived, ToBytes("abc"));
}

TEST_F(PortIo, BaudRateGoesToThePortAndBack) {
  for (const std::uint32_t rate : {9600u, 115200u}) {
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_BAUD_RATE, 0, U32(rate)), (PortResult{0, {}}));
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}), (PortResult{0, U32(rate)}));
  }
}

TEST_F(PortIo, ControlOutputIsCutToWhatThePortGave) {
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_TIMEOUTS, 50, ReadTimeouts(1, 2, 3)),
            (PortResult{0, {}}));
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_TIMEOUTS, 20, {}),
            (PortResult{0, ReadTimeouts(1, 2, 3)}));
}

TEST_F(PortIo, ControlThatThePortRefusesIsNeverAnswered) {
  EXPECT_TRUE(client_.Request(1, kIoControl, ControlArguments(0x001B0FFC, 16, {})));
  EXPECT_TRUE(client_.Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_SET_BAUD_RATE, 0, {})));
  EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}).code, 0u);
}

TEST_F(PortIo, NothingToTransferIsASuccess) {
  EXPECT_EQ(client_.Write({}), 0u);
  EXPECT_EQ(client_.Read(0), (PortResult{0, {}}));
}

TEST_F(PortIo, PendingReadDoesNotHoldBackTheWriteThatFeedsIt) {
  const Bytes text = ToBytes("fed by a later request");
  EXPECT_TRUE(client_.Request(1, kRead, U32(static_cast<std::uint32_t>(text.size()))));
  EXPECT_TRUE(client_.Request(2, kWrite, Vector(text)));
  std::map<std::uint32_t, Bytes> replies;
  for (int i = 0; i < 2; ++i) {
    Message reply = client_.Receive();
    replies[reply.call] = std::move(reply.payload);
  }
  EXPECT_EQ(replies[1], Join({U32(0), Vector(text)}));
  EXPECT_EQ(replies[2], U32(0));
}

TEST_F(PortIo, LargeMessagesKeepEveryByte) {
  const Bytes sent = Pattern(200'000);
  constexpr std::uint32_t kWriteCall = 1;
  EXPECT_TRUE(client_.Request(kWriteCall, kWrite, Vector(sent)));
  EXPECT_TRUE(client_.Request(2, kRead, U32(200'000)));
  std::map<std::uint32_t, Bytes> replies;
  Bytes received;
  while (received.size() < sent.size() && !HasFailure()) {
    const Message reply = client_.Receive();
    if (reply.call == kWriteCall) {
      EXPECT_EQ(reply.payload, U32(0));
      continue;
    }
    EXPECT_EQ(U32At(reply.payload, 0), 0u);
    received.insert(received.end(), reply.payload.begin() + 8, reply.payload.end());
    if (received.size() < sent.size()) {
      EXPECT_TRUE(client_.Request(2, kRead, U32(200'000)));
    }
  }
  EXPECT_TRUE(received == sent);
}

// Requests in one burst are served side by side; each must be answered once, by a whole message.
TEST_F(PortIo, RepliesOfManyRequestsComeWhole) {
  constexpr std::uint32_t kRequests = 400;
  Bytes burst;
  for (std::uint32_t call = 0; call < kRequests; ++call) {
    const Bytes request = Encode(
        {call, kClientCode, kIoControl, ControlArguments(IOCTL_SERIAL_GET_BAUD_RATE, 4, {})});
    burst.insert(burst.end(), request.begin(), request.end());
  }
  EXPECT_TRUE(client_.Send(burst));
  std::map<std::uint32_t, int> answers;
  for (std::uint32_t i = 0; i < kRequests && !HasFailure(); ++i) {
    const Message reply = client_.Receive();
    EXPECT_EQ(reply.code, kClientCode);
    EXPECT_EQ(reply.method, kIoControl);
    EXPECT_EQ(reply.payload.size(), 12u);
    EXPECT_LT(reply.call, kRequests);
    EXPECT_EQ(++answers[reply.call], 1);
  }
}

}  // namespace
}  // namespace system_test
