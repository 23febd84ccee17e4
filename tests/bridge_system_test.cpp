// The bridge between a real server and programs that come over TCP and over a named pipe. The port
// is one of the virtual serial driver, which has all the signals of a real one.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/server_process.h"
#include "tests/tcp_client.h"
#include "tests/virtual_port.h"

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
};

int Count(std::wstring_view text, std::wstring_view part) {
  int count = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
    ++count;
  return count;
}

// What a program is told instead of being served.
Bytes Line(const std::wstring& text) {
  const std::wstring line = kName + text + L"\r\n";
  return {line.begin(), line.end()};
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes ComPort(const Bytes& payload) {
  return Bytes{0xFF, 0xFA, 44} + payload + Bytes{0xFF, 0xF0};
}

// Commands of the option, and what the server calls the answers and notices.
constexpr std::uint8_t kSetBaudRate = 1;
constexpr std::uint8_t kSetDataSize = 2;
constexpr std::uint8_t kSetControl = 5;
constexpr std::uint8_t kSuspend = 8;
constexpr std::uint8_t kResume = 9;
constexpr std::uint8_t kSetLineMask = 10;
constexpr std::uint8_t kPurge = 12;
constexpr std::uint8_t kToClient = 100;
constexpr std::uint8_t kLineNotice = 106;
constexpr std::uint8_t kModemNotice = 107;

// A program that has agreed to control the port and knows the state of the modem lines.
class TelnetClient : public TcpClient {
 public:
  explicit TelnetClient(std::uint16_t port, std::uint8_t lines = 0) : TcpClient(port) {
    EXPECT_EQ(Receive(18), Bytes({0xFF, 0xFB, 0, 0xFF, 0xFB, 3, 0xFF, 0xFB, 44,  //
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
  void ExpectServes(Bridge& bridge) {
    TelnetClient client(bridge.TcpPort());
    const Bytes hello = ToBytes("hello");
    EXPECT_TRUE(client.Send(hello));
    Bytes sent;
    // What the program before had sent may still be on its way.
    EXPECT_TRUE(Eventually([&] {
      sent = sent + port_.TakeSent();
      return sent.size() >= hello.size() &&
             std::equal(hello.begin(), hello.end(), sent.end() - std::ssize(hello));
    }));
  }

  // The bridge has seen so many programs go.
  void ExpectGone(const Bridge& bridge, int programs = 1) {
    EXPECT_TRUE(Eventually([&] { return Count(bridge.Output(), L" has gone\n") >= programs; }));
  }

  VirtualPort port_;
  ServerProcess server_;
};

TEST_F(BridgeTest, ModemLinesAreToldWhenTheyChange) {
  port_.SetModemInputs(INPUT_DSR);
  Bridge bridge(L"--listen 0");
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
  const auto journal = port_.TakeJournal();
  EXPECT_EQ(std::ranges::count(journal, IOCTL_SERIAL_GET_MODEMSTATUS, &DriverRequest::kind),
            std::ssize(changes));  // it is asked for when it changes, and at no other time

  // A ring is told when it ends, and the line is as it was before.
  port_.SetModemInputs(INPUT_RING);
  port_.SetModemInputs(0);
  client.ExpectNotice({kModemNotice, 0x04});
}

TEST_F(BridgeTest, ProgramThatCommandsWithoutAgreementIsToldToo) {
  Bridge bridge(L"--listen 0");
  TcpClient client(bridge.TcpPort());
  EXPECT_EQ(client.Receive(18).size(), 18u);
  EXPECT_TRUE(client.Send(ComPort({kSetLineMask, 0})));
  const Bytes expected = ComPort({kSetLineMask + kToClient, 0}) + ComPort({kModemNotice, 0});
  EXPECT_EQ(client.Receive(expected.size()), expected);
}

TEST_F(BridgeTest, ErrorsAndBreaksAreTold) {
  Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  client.Command({kSetLineMask, 0x1E});
  port_.RaiseEvents(SERIAL_EV_ERR, SERIAL_ERROR_FRAMING | SERIAL_ERROR_PARITY);
  client.ExpectNotice({kLineNotice, 0x0C});
  port_.RaiseEvents(SERIAL_EV_ERR, SERIAL_ERROR_OVERRUN);
  client.ExpectNotice({kLineNotice, 0x02});
  port_.RaiseEvents(SERIAL_EV_BREAK);
  client.ExpectNotice({kLineNotice, 0x10});
}

TEST_F(BridgeTest, CommandsReachTheDriver) {
  Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  port_.TakeJournal();
  client.Command({kSetBaudRate, 0, 0, 1, 44});
  client.Command({kSetDataSize, 7});
  client.Command({kPurge, 1});
  EXPECT_EQ(port_.TakeJournal(),
            (std::vector<DriverRequest>{{IOCTL_SERIAL_SET_BAUD_RATE, 4, U32(300)},
                                        {IOCTL_SERIAL_SET_LINE_CONTROL, 3, {0, 0, 7}},
                                        {IOCTL_SERIAL_PURGE, 4, U32(SERIAL_PURGE_RXCLEAR)}}));
  const struct {
    std::uint8_t control;
    std::uint32_t outputs;
  } steps[] = {{9, OUTPUT_RTS},                 // DTR off
               {12, 0},                         // RTS off
               {5, OUTPUT_BREAK},               // break on
               {8, OUTPUT_BREAK | OUTPUT_DTR},  // DTR on
               {6, OUTPUT_DTR | 0},             // break off
               {11, OUTPUT_DTR | OUTPUT_RTS}};  // RTS on
  for (const auto& [control, outputs] : steps) {
    client.Command({kSetControl, control});
    EXPECT_EQ(port_.State().outputs, outputs);
  }
}

TEST_F(BridgeTest, BreakEndsWithTheProgramThatBeganIt) {
  Bridge bridge(L"--listen 0");
  {
    TelnetClient client(bridge.TcpPort());
    client.Command({kSetControl, 5});
    EXPECT_EQ(port_.State().outputs & OUTPUT_BREAK, std::uint32_t{OUTPUT_BREAK});
  }
  EXPECT_TRUE(Eventually([&] { return (port_.State().outputs & OUTPUT_BREAK) == 0; }));
}

TEST_F(BridgeTest, SuspendedProgramGetsNothingUntilItResumes) {
  Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  EXPECT_TRUE(client.Send(ComPort({kSuspend})));
  client.Command({kSetLineMask, 0});
  port_.Receive(ToBytes("abc"));
  EXPECT_TRUE(port_.ComesToHave({.controls = 1}));  // the read has ended, and no other one pends
  client.Command({kSetLineMask, 0});
  EXPECT_TRUE(client.Send(ComPort({kResume})));
  EXPECT_EQ(client.Receive(3), ToBytes("abc"));
}

TEST_F(BridgeTest, BytesAloneGoThroughUnchanged) {
  Bridge bridge(L"--listen 127.0.0.1:0 --raw");
  TcpClient client(bridge.TcpPort());
  const Bytes large = Pattern(300'000);
  EXPECT_TRUE(client.Send(large));
  Bytes sent;
  EXPECT_TRUE(Eventually([&] { return (sent = sent + port_.TakeSent()).size() >= large.size(); }));
  EXPECT_TRUE(sent == large);
  port_.Receive(large);
  EXPECT_TRUE(client.Receive(large.size()) == large);
}

TEST_F(BridgeTest, PipeCarriesBytesForOneProgramAfterAnother) {
  const std::wstring path = LR"(\\.\pipe\bridge_)" + std::to_wstring(::GetCurrentProcessId());
  Bridge bridge(L"--pipe " + path);
  port_.LoopBack();
  for (const char* const text : {"first", "second"}) {
    Tamrin::unique_file pipe;
    EXPECT_TRUE(Eventually([&] {
      pipe.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr));
      return static_cast<bool>(pipe);
    }));
    Bytes bytes = ToBytes(text);
    const auto size = static_cast<DWORD>(bytes.size());
    DWORD done = 0;
    EXPECT_TRUE(::WriteFile(pipe.get(), bytes.data(), size, &done, nullptr));
    Bytes echo;
    while (echo.size() < bytes.size()) {
      Bytes some(bytes.size());
      ASSERT_TRUE(::ReadFile(pipe.get(), some.data(), size, &done, nullptr));
      some.resize(done);
      echo = echo + some;
    }
    EXPECT_EQ(echo, bytes);
    pipe.reset();
    ExpectGone(bridge, text[0] == 'f' ? 1 : 2);
  }
}

TEST_F(BridgeTest, SecondProgramIsToldThatThePortIsInUse) {
  Bridge bridge(L"--listen 0");
  {
    TelnetClient first(bridge.TcpPort());
    TcpClient second(bridge.TcpPort());
    EXPECT_EQ(second.ReceiveUntilEnd(), Line(L" is in use by another program"));
    first.Command({kSetControl, 9});
  }
  ExpectGone(bridge);
  ExpectServes(bridge);
}

TEST_F(BridgeTest, RefusedProgramThatKeepsTalkingHoldsUpNobody) {
  Bridge bridge(L"--listen 0");
  {
    TelnetClient first(bridge.TcpPort());
    TcpClient second(bridge.TcpPort());
    const std::jthread talking([&](std::stop_token enough) {
      while (!enough.stop_requested() && second.Send(ToBytes("let me in")))
        ::Sleep(50);
    });
    TcpClient third(bridge.TcpPort());
    EXPECT_EQ(third.ReceiveUntilEnd(), Line(L" is in use by another program"));
    first.Command({kSetControl, 9});
  }
  ExpectGone(bridge);
  ExpectServes(bridge);
}

TEST_F(BridgeTest, ReleasedPortIsFreeForOthersBetweenPrograms) {
  Bridge bridge(L"--listen 0 --release");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(port_.State().open_handles, 0u);
    ExpectServes(bridge);
    EXPECT_TRUE(port_.ComesToBeClosed());
    RawClient other;
    EXPECT_EQ(other.OpenPort(kVirtualPort), 0u);
    other.Disconnect();
    EXPECT_TRUE(port_.ComesToBeClosed());
  }
}

TEST_F(BridgeTest, ProgramThatReadsNothingHoldsUpTheLine) {
  Bridge bridge(L"--listen 0 --raw");
  TcpClient client(bridge.TcpPort());
  const Bytes part = Pattern(0x40000);
  Bytes all;
  // Until the system's buffers are full: then no read may be sent any more.
  for (int round = 0; round < 200 && port_.State().pending_reads != 0; ++round) {
    port_.Receive(part);
    all = all + part;
    Eventually([&] { return port_.State().pending_reads != 0; }, 500);
  }
  EXPECT_EQ(port_.State().pending_reads, 0u);
  const Bytes received = client.Receive(all.size());
  EXPECT_EQ(received.size(), all.size());
  EXPECT_TRUE(received == all);
}

TEST_F(BridgeTest, MalformedTelnetHurtsNobodyElse) {
  Bridge bridge(L"--listen 0");
  ExpectServes(bridge);
  const std::size_t before = bridge.MemoryInUse();
  constexpr std::uint8_t kSpecial[] = {0xFF, 0xFF, 0xFF, 0xFA, 0xFB, 0xFD, 0xF0, 44, 0, 1, 5, 12};
  for (int seed = 0; seed < 8; ++seed) {
    ExpectGone(bridge, seed + 1);
    std::mt19937 random(static_cast<unsigned>(seed));
    Bytes input(0x10000, seed % 2 == 0 ? 0xFF : 'x');
    if (seed < 2)  // nothing but 0xFF; a subnegotiation without end
      std::ranges::copy(Bytes{0xFF, 0xFA, 44}, input.begin());
    else
      for (std::uint8_t& byte : input)
        byte = random() % 4 == 0 ? static_cast<std::uint8_t>(random())
                                 : kSpecial[random() % std::size(kSpecial)];
    TcpClient client(bridge.TcpPort());
    client.Send(input, 300);  // what asks for answers and reads none is not taken for ever
  }
  ExpectGone(bridge, 9);
  EXPECT_LT(bridge.MemoryInUse(), before + 0x400000);
  ExpectServes(bridge);
}

TEST_F(BridgeTest, EndOfTheServerEndsTheBridge) {
  Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  server_.Stop();
  EXPECT_EQ(bridge.ExitCode(), 2u);
  EXPECT_NE(bridge.Errors().find(L"the server on this machine ended the connection"),
            std::wstring::npos);
  EXPECT_EQ(client.ReceiveUntilEnd(), Bytes());
}

TEST_F(BridgeTest, ServerThatComesBackIsUsedAgain) {
  Bridge bridge(L"--listen 0 --retry");
  ExpectServes(bridge);
  server_.Stop();
  EXPECT_TRUE(
      Eventually([&] { return bridge.Errors().find(L"trying again") != bridge.Errors().npos; }));
  TcpClient early(bridge.TcpPort());
  EXPECT_EQ(early.ReceiveUntilEnd(), Line(L" is not there at the moment"));
  const ServerProcess next;
  EXPECT_TRUE(Eventually(
      [&] { return bridge.Errors().find(kName + L" is back") != bridge.Errors().npos; }));
  ExpectServes(bridge);
}

TEST_F(BridgeTest, DeviceThatVanishesEndsTheBridge) {
  Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  port_.Vanish();
  EXPECT_EQ(bridge.ExitCode(2 * kPatience), 4u);
  EXPECT_EQ(bridge.Errors().rfind(kName, 0), 0u);
}

TEST_F(BridgeTest, ConsoleEventsEndTheBridgeWell) {
  for (const DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT}) {
    Bridge bridge(L"--listen 0");
    const TelnetClient client(bridge.TcpPort());
    bridge.SendConsoleEvent(event);
    EXPECT_EQ(bridge.ExitCode(), 0u);
    EXPECT_EQ(bridge.Errors(), L"");
  }
  EXPECT_TRUE(port_.ComesToBeClosed());
}

TEST_F(BridgeTest, AddressThatOthersReachIsWarnedOf) {
  const Bridge open(L"--listen 0.0.0.0:0");
  EXPECT_EQ(open.Errors().rfind(L"Warning: ", 0), 0u);
  const Bridge local(L"--listen 0 --release");
  EXPECT_EQ(local.Errors(), L"");
}

}  // namespace
}  // namespace system_test
