// Access to ports, their release, and devices that answer late or never, fail, or vanish.
#include <gtest/gtest.h>

#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

TEST(OpenPort, IsRefusedWhereItMustAndLogged) {
  const ServerProcess server(L"--share-ports 6,77");
  RawClient client;
  EXPECT_EQ(client.IoControl(0, 4), (PortResult{kNotConnected, {}}));
  EXPECT_EQ(client.Write("x"), kNotConnected);
  for (const std::uint32_t number : {0u, 200u, 0xFFFFFFFFu})
    EXPECT_EQ(client.OpenPort(number), kAccessDenied) << number;
  EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
  EXPECT_EQ(client.OpenPort(kFilePort), 0u);
  RawClient next;
  EXPECT_EQ(next.OpenPort(kFilePort), kPortInUse);
  client.Disconnect();
  EXPECT_TRUE(Eventually([&] { return next.OpenPort(kFilePort) == 0; }));

  wchar_t account[256] = {};
  DWORD size = 256;
  Require(::GetUserNameW(account, &size), "GetUserNameW");
  const std::wstring name = L"\\" + std::wstring(account);
  for (const std::wstring& line :
       {L"\tDEBUG\tCOM200 sharing is prohibited\n" + std::wstring(),
        name + L" gets error \"0x80070002\" while trying to connect to COM77\n",
        name + L" has just connected to COM6\n", name + L" disconnected\n"})
    EXPECT_TRUE(server.Logs(line)) << std::string(line.begin(), line.end());
}

class Device : public ::testing::Test {
 protected:
  Device() { Open(); }

  void Open() { client_ = RawClient(kVirtualPort); }

  // Leaves a read and a wait for events pending in the driver.
  void StartBoth() {
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_SET_WAIT_MASK, 0, U32(SERIAL_EV_RXCHAR)).code, 0u);
    EXPECT_TRUE(
        client_.Send(Request(1, kRead, U32(2)) +
                     Request(2, kIoControl, ControlArguments(IOCTL_SERIAL_WAIT_ON_MASK, 4))));
    EXPECT_TRUE(port_.HasPending(2));
  }

  void ExpectPortWorks() {
    port_.Send("in");
    EXPECT_EQ(client_.Read(2), (PortResult{0, "in"}));
    EXPECT_EQ(client_.Write("out"), 0u);
    EXPECT_TRUE(port_.Receives("out"));
    EXPECT_EQ(client_.IoControl(IOCTL_SERIAL_GET_BAUD_RATE, 4), (PortResult{0, U32(9600)}));
  }

  VirtualPort port_;
  ServerProcess server_;
  RawClient client_;
};

TEST_F(Device, FailureIsNotAnsweredAndTheNextRequestsAre) {
  const struct {
    std::uint32_t kind;
    Bytes request;
  } rows[] = {{REQUEST_READ, Request(1, kRead, U32(1))},
              {REQUEST_WRITE, Request(1, kWrite, Vector("lost"))},
              {IOCTL_SERIAL_GET_MODEMSTATUS,
               Request(1, kIoControl, ControlArguments(IOCTL_SERIAL_GET_MODEMSTATUS, 4))}};
  // NTSTATUS values of devices: a warning, then errors.
  for (const std::uint32_t status : {0x80000005, 0xC0000185, 0xC00000BB, 0xC0000120}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(std::to_string(status) + " for " + std::to_string(row.kind));
      port_.Fault(row.kind, status);
      EXPECT_TRUE(client_.Send(row.request));
      ExpectPortWorks();
    }
  }
}

TEST_F(Device, VanishesUnderEveryRequestAndComesBack) {
  StartBoth();
  port_.Vanish();
  EXPECT_TRUE(client_.Send(Request(4, kRead, U32(1))));
  EXPECT_EQ(client_.OpenPort(kVirtualPort), kAlreadyHoldsPort);  // nothing else is answered
  client_.Disconnect();
  EXPECT_TRUE(port_.IsClosed());
  client_ = RawClient();
  EXPECT_EQ(client_.OpenPort(kVirtualPort), kFileNotFound);
  port_.ComeBack();
  Open();
  ExpectPortWorks();
}

// Pending requests are aborted, but data that the driver has accepted is not cleared.
TEST_F(Device, IsClosedByADepartureAndByTheStopAfterWhatPends) {
  for (const bool stops : {false, true}) {
    StartBoth();
    stops ? server_.Stop() : client_.Disconnect();
    EXPECT_TRUE(port_.IsClosed());
    const virtual_serial_state state = port_.State();
    EXPECT_EQ(state.pending + state.wait_mask, 0u);
    EXPECT_EQ(state.purged, DWORD{SERIAL_PURGE_TXABORT | SERIAL_PURGE_RXABORT});
    port_.Reset();
    if (!stops)
      Open();
  }
}

// A driver may lose a request and even ignore its cancellation. The port is closed all the same,
// and the request's late completion has no effect.
TEST_F(Device, ThatNeverAnswersHoldsUpNeitherDepartureNorStop) {
  port_.Fault(REQUEST_ANY, 0, 3);  // the read, and the requests of the departure
  EXPECT_TRUE(client_.Send(Request(1, kRead, U32(1))));
  EXPECT_TRUE(port_.HasPending(1));
  client_.Disconnect();
  EXPECT_TRUE(server_.Logs(L" disconnected\n"));
  EXPECT_TRUE(port_.IsClosed());
  EXPECT_TRUE(port_.HasPending(3));
  Open();
  port_.Fault(REQUEST_READ, 0);  // also ends the held requests
  EXPECT_TRUE(client_.Send(Request(1, kRead, U32(1))));
  EXPECT_TRUE(port_.HasPending(1));
  server_.Stop();
}

// The tool that checks a real line. Wine lets a port be opened twice, so that row fails.
TEST(LineCheck, FindsAGoodLineGoodAndSeesTheDeviceGo) {
  const std::wstring line = L". COM" + std::to_wstring(kVirtualPort);
  VirtualPort port;
  const ServerProcess server;
  port.LoopBack();
  const CompletedRun good(L"tarnwheel-line-check", line);
  EXPECT_EQ(good.exit_code, 1u) << std::string(good.output.begin(), good.output.end());
  EXPECT_TRUE(good.output.ends_with(L"PASS  the port is free again\n"));

  const Program unplugged(L"tarnwheel-line-check", line + L" --unplug");
  EXPECT_TRUE(unplugged.Prints(L"Unplug the device now."));
  port.Vanish();
  EXPECT_TRUE(unplugged.Prints(L"Plug it in again."));
  port.ComeBack();
  EXPECT_EQ(unplugged.ExitCode(), 0u);
}

}  // namespace
}  // namespace system_test
