// Which ports a client may open, and when a port is free again.
#include <gtest/gtest.h>

#include <array>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

constexpr std::uint32_t kAlreadyHoldsPort = 0x800700B7;
constexpr std::uint32_t kAccessDenied = 0x80070005;
constexpr std::uint32_t kFileNotFound = 0x80070002;
constexpr std::uint32_t kNotConnected = 0x800708CA;

std::wstring OwnAccount() {
  std::array<wchar_t, 256> computer = {};
  std::array<wchar_t, 256> user = {};
  auto computer_size = static_cast<DWORD>(computer.size());
  auto user_size = static_cast<DWORD>(user.size());
  Require(::GetComputerNameW(computer.data(), &computer_size), "GetComputerNameW");
  Require(::GetUserNameW(user.data(), &user_size), "GetUserNameW");
  return std::wstring(computer.data()) + L"\\" + user.data();
}

std::wstring ComName(std::uint32_t number) {
  return L"COM" + std::to_wstring(number);
}

TEST(OpenPort, SecondOpenIsRefusedAndKeepsTheFirst) {
  ServerProcess server;
  RawClient client;
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
  EXPECT_EQ(client.OpenPort(LoopbackPort()), kAlreadyHoldsPort);
  EXPECT_EQ(client.OpenPort(kMissingPort), kAlreadyHoldsPort);
  client.ReadsWaitForEver();
  EXPECT_EQ(client.Write(ToBytes("x")), 0u);
  EXPECT_EQ(client.Read(1), (PortResult{0, ToBytes("x")}));
}

TEST(OpenPort, OfTwoOpensSentTogetherOneIsRefused) {
  ServerProcess server;
  RawClient client;
  const Bytes open = Encode({1, kClientCode, kOpenPort, U32(LoopbackPort())});
  EXPECT_TRUE(client.Send(Join({open, open})));
  const Bytes replies = Join({client.Receive().payload, client.Receive().payload});
  EXPECT_TRUE(replies == Join({U32(0), U32(kAlreadyHoldsPort)}) ||
              replies == Join({U32(kAlreadyHoldsPort), U32(0)}));
}

TEST(OpenPort, PortThatIsNotSharedIsRefused) {
  ServerProcess server(L"--share-ports 99," + std::to_wstring(LoopbackPort()));
  RawClient client;
  EXPECT_EQ(client.OpenPort(kFilePort), kAccessDenied);
  EXPECT_TRUE(server.Logs(L"DEBUG", ComName(kFilePort) + L" sharing is prohibited"));
  EXPECT_EQ(client.OpenPort(0), kAccessDenied);
  EXPECT_EQ(client.OpenPort(99), kFileNotFound);
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
}

TEST(OpenPort, MissingPortIsToldAndLeavesTheSessionFree) {
  ServerProcess server;
  RawClient client;
  for (const std::uint32_t number : {kMissingPort, 0u, 4294967295u}) {
    EXPECT_EQ(client.OpenPort(number), kFileNotFound) << number;
    EXPECT_TRUE(server.Logs(
        L"DEBUG", L"Client " + OwnAccount() +
                      L" gets error \"0x80070002\" while trying to connect to " + ComName(number)));
  }
  EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
}

TEST(OpenPort, LogNamesTheClient) {
  ServerProcess server;
  {
    RawClient client;
    EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
  }
  const std::wstring name = L"Client " + OwnAccount();
  const std::wstring port = ComName(LoopbackPort());
  EXPECT_TRUE(server.Logs(L"INFO", name + L" disconnected"));
  EXPECT_EQ(server.Count(L"DEBUG", name + L" is attempting to connect to " + port), 1u);
  EXPECT_EQ(server.Count(L"INFO", name + L" has just connected to " + port), 1u);
}

TEST(OpenPort, ClientThatAskedForNothingIsUnknown) {
  ServerProcess server;
  {
    RawClient client;
    EXPECT_EQ(client.Read(1).code, kNotConnected);
  }
  EXPECT_TRUE(server.Logs(L"INFO", L"Client Unknown disconnected"));
}

TEST(OpenPort, PortOfAnotherClientIsRefusedUntilThatOneLeaves) {
  ServerProcess server;
  RawClient first;
  RawClient second;
  EXPECT_EQ(first.OpenPort(kFilePort), 0u);
  EXPECT_EQ(second.OpenPort(kFilePort), kPortInUse);
  EXPECT_EQ(second.OpenPort(LoopbackPort()), 0u);

  RawClient third;
  first.Disconnect();
  EXPECT_TRUE(Eventually([&] { return third.OpenPort(kFilePort) == 0; }));
}

// The loopback port is none that Wine refuses to open twice, so the handles tell that it is closed.
TEST(OpenPort, DisconnectEndsPendingReadsAndReleasesThePort) {
  constexpr std::size_t kSessions = 2 * kPoolHandles;
  ServerProcess server;
  const std::size_t handles = server.program().HandleCount();
  for (std::size_t session = 0; session < kSessions; ++session) {
    RawClient client;
    EXPECT_EQ(client.OpenPort(LoopbackPort()), 0u);
    client.ReadsWaitForEver();
    EXPECT_TRUE(client.Request(1, kRead, U32(10)));
    EXPECT_TRUE(client.Request(2, kRead, U32(10)));
    EXPECT_EQ(client.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4, {}).code, 0u);
  }
  EXPECT_TRUE(server.Logs(L"INFO", L" disconnected", kSessions));
  EXPECT_TRUE(server.HandlesComeDownTo(handles + kPoolHandles))
      << server.program().HandleCount() << " handles, once there were " << handles;
  EXPECT_EQ(RawClient().OpenPort(LoopbackPort()), 0u);
}

TEST(OpenPort, NothingWorksBeforeIt) {
  ServerProcess server;
  RawClient client;
  EXPECT_EQ(client.Call(kIoControl, ControlArguments(IOCTL_SERIAL_GET_BAUD_RATE, 4, {})),
            Join({U32(kNotConnected), U32(0)}));
  EXPECT_EQ(client.Call(kWrite, Vector(ToBytes("x"))), U32(kNotConnected));
  EXPECT_EQ(client.Call(kRead, U32(0xFFFFFFFF)), Join({U32(kNotConnected), U32(0)}));
}

}  // namespace
}  // namespace system_test
