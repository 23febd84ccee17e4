// What a client may cost at most, and that a driver or a domain controller that does not answer
// holds up nobody else.
#include <gtest/gtest.h>

#include <list>

#include "platform/serial.h"
#include "rpc/discovery_datagram.h"
#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"
#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

constexpr std::uint32_t kOutputTooLarge = 0x800706F8;
constexpr std::uint32_t kMiB = 1024 * 1024;

void ExpectServed() {
  EXPECT_EQ(RawClient().Read(1).code, kNotConnected);
}

Bytes Burst(std::uint32_t count, std::uint16_t method, const Bytes& payload) {
  Bytes requests;
  for (std::uint32_t call = 0; call < count; ++call) {
    const Bytes request = Encode({call, kClientCode, method, payload});
    requests.insert(requests.end(), request.begin(), request.end());
  }
  return requests;
}

class Bounds : public ::testing::Test {
 protected:
  // Lets the server's memory grow by so much, for its threads and what the heap takes at a time.
  static constexpr std::size_t kSlack = 64 * kMiB;

  void ExpectNoGrowth() {
    ExpectServed();
    EXPECT_LT(server_.program().CommittedMemory(), memory_ + kSlack);
  }

  ServerProcess server_;
  const std::size_t memory_ = (ExpectServed(), server_.program().CommittedMemory());
};

TEST_F(Bounds, AnnouncedLengthTakesNoMemoryAndBeyondReasonEndsTheConnection) {
  std::list<RawClient> clients(20);
  for (RawClient& client : clients)
    EXPECT_TRUE(client.Send(Header(1, kClientCode, kWrite, 16 * kMiB)));
  for (const std::uint32_t length : {17 * kMiB + 1, 0xFFFFFFF0u}) {
    RawClient client;
    EXPECT_TRUE(client.Send(Header(1, kClientCode, kWrite, length)));
    EXPECT_TRUE(client.ServerHangsUp());
  }
  ExpectNoGrowth();
  EXPECT_TRUE(server_.Logs(L"WARNING",
                           L"Client Unknown has announced a message of more than 17825792 bytes; "
                           L"its connection is ended",
                           2));
}

TEST_F(Bounds, SixteenMegabytesAreWrittenAtOnce) {
  RawClient client;
  EXPECT_EQ(client.OpenPort(kFilePort), 0u);
  EXPECT_EQ(client.Write(Bytes(16 * kMiB)), 0u);
}

TEST_F(Bounds, OutputIsLimitedWhateverIsAskedFor) {
  const VirtualPort port;
  RawClient client;
  EXPECT_EQ(client.OpenPort(kVirtualPort), 0u);
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, kMiB + 1, {}).code, kOutputTooLarge);
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 0xFFFFFFFF, {}).code, kOutputTooLarge);
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, kMiB, {}).data.size(), 4u);
  client.ReadsWait();
  EXPECT_TRUE(client.Request(1, kRead, U32(0xFFFFFFFF)));
  EXPECT_TRUE(port.ComesToHave({.reads = 1}));
  ExpectNoGrowth();
}

// A quiet line keeps its reads; a client has only so many of them, and the port is released when it
// goes although requests of it have not been read.
TEST_F(Bounds, PendingReadsAreLimited) {
  constexpr std::uint32_t kMost = 256;
  const VirtualPort port;
  RawClient client;
  EXPECT_EQ(client.OpenPort(kVirtualPort), 0u);
  client.ReadsWait();
  EXPECT_TRUE(client.Send(Burst(3000, kRead, U32(1))));
  EXPECT_TRUE(port.ComesToHave({.reads = kMost}));
  ExpectServed();
  EXPECT_EQ(port.State().pending_reads, kMost);
  client.Disconnect();
  EXPECT_TRUE(port.ComesToBeClosed());
  EXPECT_TRUE(server_.AllClientsDeparted());
}

// Each list makes a line in the log and asks the system, so the lines count the lists.
TEST_F(Bounds, ListsOfAClientThatHasGoneAreNotMade) {
  constexpr std::uint32_t kLists = 20'000;
  {
    RawClient client;
    EXPECT_TRUE(client.Send(Burst(kLists, kEnumeratePorts, {})));
    EXPECT_EQ(client.Receive().method, kEnumeratePorts);
    ExpectNoGrowth();
  }
  EXPECT_TRUE(server_.AllClientsDeparted());
  const auto lists = [this] { return server_.Count(L"INFO", L" is enumerating available ports"); };
  const std::size_t made = lists();
  EXPECT_LT(made, kLists);
  EXPECT_FALSE(Eventually([&] { return lists() != made; }, 500));
}

DWORD ConnectOnce() {
  const Tamrin::unique_file pipe(::CreateFileW(kPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                               OPEN_EXISTING, 0, nullptr));
  return pipe ? ERROR_SUCCESS : ::GetLastError();
}

TEST_F(Bounds, ClientsBeyondTheHundredthFindThePipeBusy) {
  std::list<RawClient> clients(100);
  for (RawClient& client : clients)
    EXPECT_EQ(client.Read(1).code, kNotConnected);
  for (int attempt = 0; attempt < 50; ++attempt)
    EXPECT_EQ(ConnectOnce(), DWORD{ERROR_PIPE_BUSY});
  EXPECT_EQ(clients.front().Read(1).code, kNotConnected);
  EXPECT_EQ(server_.Count(L"WARNING",
                          L"The server has all the clients that it can serve; others find its pipe "
                          L"busy until one leaves"),
            1u);
  clients.pop_back();
  ExpectServed();
}

// Blocks a call of the server on the way and expects that the others and the stop do not wait.
class BlockedCall : public ::testing::Test {
 protected:
  void ExpectStop(std::wstring_view last_word) {
    EXPECT_TRUE(server_.Strikes());
    server_.Stop();
    EXPECT_TRUE(server_.Logs(last_word));
  }

  FaultyServer server_{L"--no-discovery-"};
};

// What comes while the port is being opened waits for it, in its order.
TEST_F(BlockedCall, OpenControlWriteMayBePipelined) {
  VirtualPort port;
  RawClient client;
  const Bytes baud = U32(57'600);
  server_.Block("CreateFileW");
  EXPECT_TRUE(client.Send(Join(
      {Encode({1, kClientCode, kOpenPort, U32(kVirtualPort)}),
       Encode({2, kClientCode, kIoControl, ControlArguments(IOCTL_SERIAL_SET_BAUD_RATE, 0, baud)}),
       Encode({3, kClientCode, kWrite, Vector(ToBytes("first"))}),
       Encode({4, kClientCode, kOpenPort, U32(kVirtualPort)}),
       Encode({5, kClientCode, kWrite, Vector(ToBytes(", second"))})})));
  EXPECT_TRUE(server_.Strikes());
  EXPECT_FALSE(client.TryReceive(200));
  server_.Relent();
  const std::uint32_t codes[] = {0, 0, 0, kAlreadyHoldsPort, 0};
  for (std::uint32_t replies = 0; replies < 5; ++replies) {
    const Message reply = client.Receive();
    ASSERT_TRUE(reply.call >= 1 && reply.call <= 5);
    EXPECT_EQ(U32At(reply.payload, 0), codes[reply.call - 1]) << reply.call;
  }
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}).data, baud);
  EXPECT_EQ(port.TakeSent(), ToBytes("first, second"));
}

TEST_F(BlockedCall, DriverThatKeepsAPortHoldsUpNoStop) {
  RawClient client;
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
  server_.Block("CloseHandle");
  client.Disconnect();
  EXPECT_TRUE(server_.Strikes());
  ExpectServed();
  ExpectStop(L"The driver of COM" + std::to_wstring(LoopbackPort()) + L" does not let go of it");
}

TEST_F(BlockedCall, DriverThatDoesNotReturnHoldsUpNoStop) {
  RawClient client;
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
  server_.Block("DeviceIoControl");
  EXPECT_TRUE(client.Request(1, kIoControl,
                             ControlArguments(IOCTL_SERIAL_PURGE, 0, U32(SERIAL_PURGE_RXCLEAR))));
  EXPECT_TRUE(server_.Strikes());
  ExpectServed();
  ExpectStop(L" does not let go of it");
}

// The lines that wait for the name are logged without it in the end.
TEST_F(BlockedCall, AccountThatIsNotFoundHoldsUpNoRequest) {
  server_.Block("LookupAccountSidW");
  {
    RawClient client;
    EXPECT_FALSE(client.Call(kEnumeratePorts, {}).empty());
    EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
    EXPECT_TRUE(server_.Strikes());
  }
  EXPECT_TRUE(server_.Logs(L"Client Unknown disconnected"));
  EXPECT_TRUE(server_.Logs(L"Client Unknown has just connected to COM"));
  ExpectStop(kStopped);
}

TEST_F(BlockedCall, ComputerThatIsNotFoundHoldsUpNoStop) {
  const std::wstring path = LR"(\\.\mailslot\)" + std::wstring(tether::kQueryMailslot);
  Tamrin::unique_file queries;
  EXPECT_TRUE(Eventually([&] {
    queries.reset(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr));
    return static_cast<bool>(queries);
  }));
  server_.Block("CreateFileW");
  const auto query = tether::make_datagram(L"elsewhere");
  DWORD written = 0;
  EXPECT_TRUE(::WriteFile(queries.get(), query.data(), static_cast<DWORD>(query.size()), &written,
                          nullptr));
  ExpectStop(L"Auto-discovery has been stopped");
}

}  // namespace
}  // namespace system_test
