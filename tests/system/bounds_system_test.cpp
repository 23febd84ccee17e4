// The bounds on what a client may cost. Neither a client that does not read nor a driver or a
// domain controller that does not answer holds up other clients or the stop.
#include <gtest/gtest.h>

#include <list>

#include "rpc/discovery_datagram.h"
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
  for (std::uint32_t call = 0; call < count; ++call)
    requests += Request(call, method, payload);
  return requests;
}

class Bounds : public ::testing::Test {
 protected:
  // The margin is for the server's threads and for the heap's granularity.
  void ExpectNoGrowth() {
    ExpectServed();
    EXPECT_LT(server_.CommittedMemory(), memory_ + 64 * kMiB);
  }

  ServerProcess server_;
  const std::size_t memory_ = (ExpectServed(), server_.CommittedMemory());
};

TEST_F(Bounds, AnnouncedLengthTakesNoMemoryAndBeyondReasonEndsTheConnection) {
  std::list<RawClient> clients(20);
  for (RawClient& client : clients)
    EXPECT_TRUE(client.Send(Header(1, kWrite, 16 * kMiB)));
  for (const std::uint32_t length : {17 * kMiB + 1, 0xFFFFFFF0u}) {
    RawClient client;
    EXPECT_TRUE(client.Send(Header(1, kWrite, length)));
    EXPECT_TRUE(client.ServerHangsUp());
  }
  ExpectNoGrowth();
  EXPECT_TRUE(
      server_.Logs(L"\tWARNING\tClient Unknown has announced a message of more than "
                   L"17825792 bytes; its connection is ended\n",
                   2));
  RawClient client(kFilePort);
  EXPECT_EQ(client.Write(Bytes(16 * kMiB, 'x')), 0u);
}

TEST_F(Bounds, OutputIsLimitedWhateverIsAskedFor) {
  const VirtualPort port;
  RawClient client(kVirtualPort);
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, kMiB + 1).code, kOutputTooLarge);
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, kMiB).data.size(), 4u);
  client.MakeReadsWait();
  EXPECT_TRUE(client.Send(Request(1, kRead, U32(0xFFFFFFFF))));
  EXPECT_TRUE(port.HasPending(1));
  ExpectNoGrowth();
}

// On a quiet line reads stay pending. Their number per client is limited, and the port is released
// when the client leaves, even though some of its requests have not been read.
TEST_F(Bounds, PendingReadsAreLimited) {
  constexpr std::uint32_t kMax = 256;
  const VirtualPort port;
  RawClient client(kVirtualPort);
  EXPECT_TRUE(client.Send(Burst(3000, kRead, U32(1))));
  EXPECT_TRUE(port.HasPending(kMax));
  ExpectServed();
  EXPECT_EQ(port.State().pending, kMax);
  client.Disconnect();
  EXPECT_TRUE(port.IsClosed());
}

// Each enumeration queries the system and logs one line, so the lines count the enumerations.
TEST_F(Bounds, ListsOfAClientThatHasGoneAreNotMade) {
  constexpr int kLists = 20'000;
  {
    RawClient client;
    EXPECT_TRUE(client.Send(Burst(kLists, kEnumeratePorts, {})));
    client.Receive();
    ExpectNoGrowth();
  }
  EXPECT_TRUE(server_.Logs(L" disconnected\n", 3));
  const int made = server_.Count(L" is enumerating available ports\n");
  EXPECT_LT(made, kLists);
  for (int calls = 0; calls < 50; ++calls)
    ExpectServed();
  EXPECT_EQ(server_.Count(L" is enumerating available ports\n"), made);
}

TEST_F(Bounds, ClientsBeyondTheHundredthFindThePipeBusy) {
  std::list<RawClient> clients(100);
  for (RawClient& client : clients)
    EXPECT_EQ(client.Read(1).code, kNotConnected);
  for (int attempt = 0; attempt < 50; ++attempt)
    EXPECT_FALSE(::WaitNamedPipeW(kPipeName, 1));
  EXPECT_EQ(clients.front().Read(1).code, kNotConnected);
  EXPECT_EQ(server_.Count(L"\tWARNING\tThe server has all the clients that it can serve; others "
                          L"find its pipe busy until one leaves\n"),
            1);
  clients.pop_back();
  ExpectServed();
}

// Once a client leaves too many replies unread, the server stops reading its requests.
TEST_F(Bounds, ClientThatDoesNotReadHoldsUpNobodyAndDoesNotFillTheMemory) {
  constexpr std::uint32_t kReplies = 128;  // of a megabyte each
  RawClient silent(kFilePort);
  EXPECT_TRUE(silent.Send(Burst(kReplies, kRead, U32(kMiB))));
  for (int calls = 0; calls < 200; ++calls)
    ExpectServed();
  ExpectNoGrowth();
  for (std::uint32_t reply = 0; reply < kReplies; ++reply)
    EXPECT_EQ(silent.Receive().payload.size(), 8u + kMiB);
  EXPECT_TRUE(silent.Send(Burst(kReplies, kRead, U32(kMiB))));
  server_.Stop();
}

// Waits until the server's call is blocked, and expects that other clients and the stop are not.
void ExpectStop(const FaultyServer& server, std::wstring_view last_word) {
  EXPECT_TRUE(server.faults.Strikes());
  ExpectServed();
  server.Stop();
  EXPECT_EQ(server.Count(last_word), 1);
}

// Requests that arrive while the port is being opened wait for it and keep their order.
TEST(BlockedCall, OpenControlWriteMayBePipelined) {
  FaultyServer server;
  VirtualPort port;
  RawClient client;
  server.faults.Block("CreateFileW");
  EXPECT_TRUE(client.Send(
      Request(1, kOpenPort, U32(kVirtualPort)) +
      Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_SET_BAUD_RATE, 0, U32(57'600))) +
      Request(3, kWrite, Vector("first")) + Request(4, kOpenPort, U32(kVirtualPort)) +
      Request(5, kWrite, Vector(", second"))));
  EXPECT_TRUE(server.faults.Strikes());
  EXPECT_FALSE(client.TryReceive(200));
  server.faults.Disarm();
  for (std::uint32_t replies = 0; replies < 5; ++replies) {
    const Message reply = client.Receive();
    EXPECT_EQ(U32At(reply.payload, 0), reply.call == 4 ? kAlreadyHoldsPort : 0) << reply.call;
  }
  EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4).data, U32(57'600));
  EXPECT_TRUE(port.Receives("first, second"));
  // A port that is opened for a client that has gone is closed.
  server.faults.Block("CreateFileW");
  client = RawClient();
  EXPECT_TRUE(client.Send(Request(1, kOpenPort, U32(kLoopbackPort))));
  EXPECT_TRUE(server.faults.Strikes());
  client.Disconnect();
  EXPECT_TRUE(server.Logs(L" disconnected\n", 2));
  EXPECT_TRUE(port.IsClosed());
  server.faults.Block("CloseHandle");  // lets the open go on
  EXPECT_TRUE(server.faults.Strikes());
}

TEST(BlockedCall, ListsOfAClientAreMadeOneAtATimeAndHoldUpNoStop) {
  FaultyServer server;
  RawClient client;
  server.faults.Block("SetupDiGetClassDevsExW");
  EXPECT_TRUE(client.Send(Burst(3, kEnumeratePorts, {})));
  EXPECT_TRUE(server.faults.Strikes());
  EXPECT_TRUE(server.Logs(L" is enumerating available ports\n"));
  EXPECT_FALSE(client.TryReceive(200));
  EXPECT_EQ(server.Count(L" is enumerating available ports\n"), 1);
  // The call keeps the client's place, so a client that comes again and again gains nothing.
  client.Disconnect();
  EXPECT_TRUE(server.Logs(L" disconnected\n"));
  ExpectStop(server, L"A client's request is still running");
}

TEST(BlockedCall, DriverThatBlocksHoldsUpNoStop) {
  for (const char* call : {"CloseHandle", "DeviceIoControl"}) {
    FaultyServer server;
    RawClient client(kLoopbackPort);
    server.faults.Block(call);
    EXPECT_TRUE(
        client.Send(Request(1, kIoControl, ControlArguments(IOCTL_SERIAL_PURGE, 0, U32(8)))));
    client.Disconnect();
    ExpectStop(server, L"The driver of COM5 does not release it");
  }
}

// Log lines that wait for the account's name are eventually written without it.
TEST(BlockedCall, AccountThatIsNotFoundHoldsUpNoRequest) {
  FaultyServer server;
  server.faults.Block("LookupAccountSidW");
  {
    RawClient client;
    EXPECT_FALSE(client.Call(kEnumeratePorts, {}).empty());
    EXPECT_EQ(client.OpenPort(kLoopbackPort), 0u);
    EXPECT_TRUE(server.faults.Strikes());
  }
  EXPECT_TRUE(server.Logs(L"Client Unknown disconnected"));
  ExpectStop(server, L"Client Unknown has just connected to COM");
  EXPECT_EQ(server.Count(L"A client's request is still running"), 1);
}

TEST(BlockedCall, ComputerThatIsNotFoundHoldsUpNoStop) {
  FaultyServer server(L"--no-discovery-");
  const std::wstring path = LR"(\\.\mailslot\)" + std::wstring(tether::kQueryMailslot);
  const auto query = tether::make_datagram(L"elsewhere");
  EXPECT_TRUE(server.Logs(L"Auto-discovery has been started"));
  const Tamrin::unique_file queries(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                                  nullptr, OPEN_EXISTING, 0, nullptr));
  server.faults.Block("CreateFileW");
  DWORD written = 0;
  EXPECT_TRUE(::WriteFile(queries.get(), query.data(), static_cast<DWORD>(query.size()), &written,
                          nullptr));
  ExpectStop(server, L"Auto-discovery has been stopped");
}

}  // namespace
}  // namespace system_test
