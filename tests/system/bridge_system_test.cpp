// The bridge between a real server and programs that come over TCP and over a named pipe. The port
// is one of the virtual serial driver, which has all the signals of a real one.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "platform/serial.h"
#include "tests/support/raw_client.h"
#include "tests/support/server_process.h"
#include "tests/support/tcp_client.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

const std::wstring kName = L"COM" + std::to_wstring(kVirtualPort);

// A bridge of the virtual port that takes programs once it is constructed.
class Bridge : public Program {
 public:
  explicit Bridge(const std::wstring& options)
      : Program(L"tarnwheel-client", L"bridge . " + kName + L" " + options) {
    Require(Prints(L"Listening on "), "starting the bridge");
  }

  [[nodiscard]] std::uint16_t TcpPort() const {
    const std::wstring output = Output();
    return static_cast<std::uint16_t>(std::stoul(output.substr(output.find(L':') + 1)));
  }

  // Waits until it has seen so many programs go.
  [[nodiscard]] bool SeesGo(int programs) const {
    return Eventually([&] {
      const std::wstring output = Output();
      int count = 0;
      for (auto at = output.find(L" has gone\n"); at != output.npos;
           at = output.find(L" has gone\n", at + 1))
        ++count;
      return count >= programs;
    });
  }
};

// What a program is told instead of being served.
Bytes Line(const std::wstring& text) {
  const std::wstring line = kName + text + L"\r\n";
  return {line.begin(), line.end()};
}

Bytes ComPort(const Bytes& payload) {
  return Join({{0xFF, 0xFA, 44}, payload, {0xFF, 0xF0}});
}

// Commands of the option, and what the server calls the answers and notices.
constexpr std::uint8_t kSetBaudRate = 1;
constexpr std::uint8_t kSetControl = 5;
constexpr std::uint8_t kSuspend = 8;
constexpr std::uint8_t kResume = 9;
constexpr std::uint8_t kSetLineMask = 10;
constexpr std::uint8_t kToClient = 100;
constexpr std::uint8_t kLineNotice = 106;
constexpr std::uint8_t kModemNotice = 107;

// A program that has agreed to control the port and knows the state of the modem lines.
class TelnetClient : public TcpClient {
 public:
  explicit TelnetClient(std::uint16_t port, std::uint8_t lines = 0) : TcpClient(port) {
    EXPECT_EQ(Receive(21), Bytes({0xFF, 0xFB, 0, 0xFF, 0xFB, 1, 0xFF, 0xFB, 3, 0xFF, 0xFB, 44,  //
                                  0xFF, 0xFD, 0, 0xFF, 0xFD, 3, 0xFF, 0xFD, 44}));
    EXPECT_TRUE(Send({0xFF, 0xFD, 0, 0xFF, 0xFD, 3, 0xFF, 0xFD, 44,  //
                      0xFF, 0xFB, 0, 0xFF, 0xFB, 3, 0xFF, 0xFB, 44}));
    ExpectNotice({kModemNotice, lines});
  }

  void ExpectNotice(const Bytes& payload) {
    const Bytes notice = ComPort(payload);
    EXPECT_EQ(Receive(notice.size()), notice);
  }

  // Sends a command; the answer must be the same with the server's number.
  void Command(Bytes payload) {
    EXPECT_TRUE(Send(ComPort(payload)));
    payload[0] = static_cast<std::uint8_t>(payload[0] + kToClient);
    ExpectNotice(payload);
  }
};

class BridgeTest : public ::testing::Test {
 protected:
  // What the program before had sent may still be on its way.
  void ExpectServes(const Bridge& bridge) {
    TelnetClient client(bridge.TcpPort());
    const Bytes hello = ToBytes("hello");
    EXPECT_TRUE(client.Send(hello));
    Bytes sent;
    EXPECT_TRUE(Eventually([&] {
      sent = Join({sent, port_.TakeSent()});
      return sent.size() >= hello.size() &&
             std::equal(hello.begin(), hello.end(), sent.end() - std::ssize(hello));
    }));
  }

  VirtualPort port_;
  ServerProcess server_;
};

TEST_F(BridgeTest, ChangesOfTheLineAreTold) {
  port_.SetModemInputs(INPUT_DSR);
  const Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort(), INPUT_DSR);
  const struct {
    std::uint32_t inputs;
    std::uint8_t notice;
  } changes[] = {
      {INPUT_DSR | INPUT_CTS, 0x31}, {INPUT_CTS, 0x12}, {INPUT_CTS | INPUT_DCD, 0x98}, {0, 0x09}};
  port_.TakeJournal();
  for (const auto& [inputs, notice] : changes) {
    port_.SetModemInputs(inputs);
    client.ExpectNotice({kModemNotice, notice});
  }
  EXPECT_EQ(
      std::ranges::count(port_.TakeJournal(), IOCTL_SERIAL_GET_MODEMSTATUS, &DriverRequest::kind),
      std::ssize(changes));  // it is asked for when it changes, and at no other time

  // A ring is told when it ends, and the line is as it was before.
  port_.SetModemInputs(INPUT_RING);
  port_.SetModemInputs(0);
  client.ExpectNotice({kModemNotice, 0x04});

  client.Command({kSetLineMask, 0x1E});
  port_.RaiseEvents(SERIAL_EV_ERR, SERIAL_ERROR_FRAMING | SERIAL_ERROR_PARITY);
  client.ExpectNotice({kLineNotice, 0x0C});
  port_.RaiseEvents(SERIAL_EV_BREAK);
  client.ExpectNotice({kLineNotice, 0x10});
}

TEST_F(BridgeTest, CommandsReachTheDriverAndABreakEndsWithItsProgram) {
  const Bridge bridge(L"--listen 0");
  {
    TelnetClient client(bridge.TcpPort());
    client.Command({kSetBaudRate, 0, 0, 1, 44});
    client.Command({kSetControl, 9});  // DTR off
    client.Command({kSetControl, 5});  // break on
    EXPECT_EQ(port_.State().outputs, std::uint32_t{OUTPUT_RTS | OUTPUT_BREAK});
    EXPECT_TRUE(client.Send(ComPort({kSuspend})));
    client.Command({kSetLineMask, 0});
    port_.Receive(ToBytes("abc"));
    EXPECT_TRUE(port_.ComesToHave({.controls = 1}));  // the read has ended, and no other one pends
    client.Command({kSetLineMask, 0});
    EXPECT_TRUE(client.Send(ComPort({kResume})));
    EXPECT_EQ(client.Receive(3), ToBytes("abc"));
  }
  EXPECT_TRUE(Eventually([&] { return (port_.State().outputs & OUTPUT_BREAK) == 0; }));
}

TEST_F(BridgeTest, EscapedBytesArriveAsTheyWere) {
  const Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  Bytes plain;
  Bytes escaped;
  for (unsigned value = 0; value < 0x10000; ++value) {
    plain.push_back(static_cast<std::uint8_t>(value * 7 >> (value >> 13)));
    escaped.insert(escaped.end(), plain.back() == 0xFF ? 2 : 1, plain.back());
  }
  // Both ends have agreed on binary bytes, so a carriage return stands alone.
  EXPECT_TRUE(client.Send(escaped));
  Bytes sent;
  Eventually([&] { return (sent = Join({sent, port_.TakeSent()})).size() >= plain.size(); });
  EXPECT_TRUE(sent == plain);
  port_.Receive(plain);
  EXPECT_TRUE(client.Receive(escaped.size()) == escaped);
}

// The system takes some bytes for a program that reads nothing; then no read may be sent any more.
TEST_F(BridgeTest, BytesAloneGoThroughUnchangedOnceTheyAreRead) {
  const Bridge bridge(L"--listen 127.0.0.1:0 --raw");
  TcpClient client(bridge.TcpPort());
  constexpr std::size_t kFarMoreThanBuffers = 50'000'000;
  const Bytes part = Pattern(0x40000);
  EXPECT_TRUE(client.Send(part));
  Bytes sent;
  Eventually([&] { return (sent = Join({sent, port_.TakeSent()})).size() >= part.size(); });
  EXPECT_TRUE(sent == part);
  Bytes all;
  bool reads = true;
  while (reads && all.size() < kFarMoreThanBuffers) {
    port_.Receive(part);
    all = Join({all, part});
    reads = Eventually([&] { return port_.State().pending_reads != 0; }, 1000);
  }
  EXPECT_FALSE(reads) << "what the program does not read is kept without bound";
  EXPECT_TRUE(client.Receive(all.size()) == all);
}

TEST_F(BridgeTest, PipeCarriesBytesForOneProgramAfterAnother) {
  const std::wstring path = LR"(\\.\pipe\bridge_)" + std::to_wstring(::GetCurrentProcessId());
  const Bridge bridge(L"--pipe " + path);
  port_.LoopBack();
  for (int program = 1; program <= 2; ++program) {
    RawClient pipe(path.c_str());
    const Bytes sent = Pattern(300, static_cast<std::uint32_t>(program));
    EXPECT_TRUE(pipe.Send(sent));
    Bytes echo;
    while (echo.size() < sent.size() && !HasFailure()) {
      const Bytes some = pipe.ReceiveSome(kPatience);
      EXPECT_FALSE(some.empty());
      echo = Join({echo, some});
    }
    EXPECT_EQ(echo, sent);
    pipe.Disconnect();
    EXPECT_TRUE(bridge.SeesGo(program));
  }
}

TEST_F(BridgeTest, SecondProgramIsToldThatThePortIsInUseAndHoldsUpNobody) {
  const Bridge bridge(L"--listen 0");
  {
    TelnetClient first(bridge.TcpPort());
    TcpClient second(bridge.TcpPort());
    const std::jthread talking([&](std::stop_token enough) {
      while (!enough.stop_requested() && second.Send(ToBytes("let me in")))
        ::Sleep(50);
    });
    TcpClient third(bridge.TcpPort());
    EXPECT_EQ(third.Receive(), Line(L" is in use by another program"));
    first.Command({kSetControl, 9});
  }
  EXPECT_TRUE(bridge.SeesGo(1));
  ExpectServes(bridge);
}

TEST_F(BridgeTest, ReleasedPortIsFreeForOthersBetweenPrograms) {
  const Bridge bridge(L"--listen 0 --release");
  EXPECT_EQ(bridge.Errors(), L"");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(port_.State().open_handles, 0u);
    ExpectServes(bridge);
    EXPECT_TRUE(port_.ComesToBeClosed());
  }
  EXPECT_TRUE(Bridge(L"--listen 0.0.0.0:0").Errors().starts_with(L"Warning: "));
}

TEST_F(BridgeTest, EndsWithTheServerUnlessItRetries) {
  const Bridge bridge(L"--listen 0 --retry");
  ExpectServes(bridge);
  VirtualPort other_port(kOtherVirtualPort);
  const Program ending(L"tarnwheel-client",
                       L"bridge . COM" + std::to_wstring(kOtherVirtualPort) + L" --listen 0");
  EXPECT_TRUE(ending.Prints(L"Listening on "));
  server_.Stop();
  EXPECT_EQ(ending.ExitCode(), 2u);
  EXPECT_TRUE(ending.Complains(L"the server on this machine ended the connection"));
  EXPECT_TRUE(bridge.Complains(L"trying again"));
  EXPECT_EQ(TcpClient(bridge.TcpPort()).Receive(), Line(L" is not there at the moment"));
  const ServerProcess next;
  EXPECT_TRUE(bridge.Complains(kName + L" is back"));
  ExpectServes(bridge);
}

TEST_F(BridgeTest, EndsWithTheDeviceAndByConsoleEvents) {
  for (const DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT}) {
    const Bridge bridge(L"--listen 0");
    const TelnetClient client(bridge.TcpPort());
    bridge.SendConsoleEvent(event);
    EXPECT_EQ(bridge.ExitCode(), 0u);
    EXPECT_EQ(bridge.Errors(), L"");
  }
  EXPECT_TRUE(port_.ComesToBeClosed());
  const Bridge bridge(L"--listen 0");
  port_.Vanish();
  EXPECT_EQ(bridge.ExitCode(2 * kPatience), 4u);
  EXPECT_TRUE(bridge.Errors().starts_with(kName));
}

}  // namespace
}  // namespace system_test
