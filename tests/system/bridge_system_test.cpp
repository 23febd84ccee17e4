// The bridge between a real server and programs that come over TCP and over a named pipe. The port
// is the virtual one, which has all the signals of a real one.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

// Behind win32.h, which keeps the older socket header away.
#include <winsock2.h>

namespace system_test {
namespace {

const std::wstring kName = L"COM" + std::to_wstring(kVirtualPort);

// A bridge of the virtual port that takes programs once it is constructed.
class Bridge : public Program {
 public:
  explicit Bridge(const std::wstring& options, const std::wstring& port = kName)
      : Program(L"tarnwheel-client", L"bridge . " + port + L" " + options) {
    Require(Prints(L"Listening on "), "starting the bridge");
  }

  [[nodiscard]] std::uint16_t TcpPort() const {
    const std::wstring output = Output();
    return static_cast<std::uint16_t>(std::stoul(output.substr(output.find(L':') + 1)));
  }
};

// A program at a TCP port of this machine. What does not come within the deadline throws
// std::runtime_error.
class TcpClient {
 public:
  explicit TcpClient(std::uint16_t port) {
    WSADATA data;
    static const bool started = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    socket_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    Require(started && ::connect(socket_, name, sizeof address) == 0, "connecting");
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO})
      ::setsockopt(socket_, SOL_SOCKET, option, reinterpret_cast<const char*>(&kPatience),
                   sizeof kPatience);
  }
  TcpClient(const TcpClient&) = delete;
  TcpClient& operator=(const TcpClient&) = delete;
  ~TcpClient() { ::closesocket(socket_); }

  // False when the other end has gone.
  bool Send(const Bytes& bytes) {
    const auto size = static_cast<int>(bytes.size());
    return ::send(socket_, reinterpret_cast<const char*>(bytes.data()), size, 0) == size;
  }

  // So many bytes, or those until the other end goes.
  [[nodiscard]] Bytes Receive(std::size_t size) {
    Bytes received(size);
    std::size_t done = 0;
    for (int arrived = 1; arrived > 0 && done < size; done += static_cast<std::size_t>(arrived)) {
      auto* const room = reinterpret_cast<char*>(received.data() + done);
      arrived = ::recv(socket_, room, static_cast<int>(size - done), 0);
      Require(arrived >= 0, "waiting for bytes");
    }
    received.resize(done);
    return received;
  }

  // What a program is told instead of being served.
  void ExpectRefusal(const std::wstring& text) {
    const std::wstring line = kName + text + L"\r\n";
    EXPECT_EQ(Receive(1000), Bytes(line.begin(), line.end()));
  }

 private:
  SOCKET socket_;
};

// Commands of the option, and what the server calls the answers and notices.
constexpr std::uint8_t kSetBaudRate = 1;
constexpr std::uint8_t kSetControl = 5;
constexpr std::uint8_t kSetLineMask = 10;
constexpr std::uint8_t kToClient = 100;
constexpr std::uint8_t kLineNotice = 106;
constexpr std::uint8_t kModemNotice = 107;

Bytes ComPort(const Bytes& payload) {
  return Join({{0xFF, 0xFA, 44}, payload, {0xFF, 0xF0}});
}

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
  void ExpectServes(const Bridge& bridge) {
    TelnetClient client(bridge.TcpPort());
    EXPECT_TRUE(client.Send(ToBytes("hello")));
    EXPECT_TRUE(port_.Receives(ToBytes("hello")));
  }

  VirtualPort port_;
  ServerProcess server_;
};

TEST_F(BridgeTest, ChangesOfTheLineAreToldBothWaysAndABreakEndsWithItsProgram) {
  port_.Signal(SETDTR);
  const Bridge bridge(L"--listen 0");
  {
    TelnetClient client(bridge.TcpPort(), 0xA0);
    port_.Signal(SETRTS);
    client.ExpectNotice({kModemNotice, 0xB1});
    port_.Signal(CLRRTS);
    client.ExpectNotice({kModemNotice, 0xA1});
    port_.Signal(CLRDTR);
    client.ExpectNotice({kModemNotice, 0x0A});
    const struct {
      std::uint32_t inputs, events;
      std::uint8_t notice;
    } changes[] = {{0x20, SERIAL_EV_DSR, 0x22},
                   {0xA0, SERIAL_EV_RLSD, 0xA8},
                   {0xA0, SERIAL_EV_RING, 0xA4}};  // of a ring its end is told
    for (const auto& [inputs, events, notice] : changes) {
      port_.Change(inputs, events);
      client.ExpectNotice({kModemNotice, notice});
    }
    client.Command({kSetLineMask, 0x10});
    port_.Signal(SETBREAK);
    client.ExpectNotice({kLineNotice, 0x10});
    client.Command({kSetControl, 9});  // DTR off
    client.Command({kSetControl, 5});  // break on
    EXPECT_EQ(port_.State().outputs, std::uint32_t{OUTPUT_RTS | OUTPUT_BREAK});
  }
  EXPECT_TRUE(Eventually([&] { return (port_.State().outputs & OUTPUT_BREAK) == 0; }));
}

TEST_F(BridgeTest, EscapedBytesArriveAsTheyWere) {
  const Bridge bridge(L"--listen 0");
  TelnetClient client(bridge.TcpPort());
  const Bytes plain = Pattern(0x10000);
  Bytes escaped;
  for (const std::uint8_t byte : plain)
    escaped.insert(escaped.end(), byte == 0xFF ? 2 : 1, byte);
  // Both ends have agreed on binary bytes, so a carriage return stands alone.
  EXPECT_TRUE(client.Send(escaped));
  EXPECT_TRUE(port_.Receives(plain));
  EXPECT_EQ(port_.Send(plain), plain.size());
  EXPECT_TRUE(client.Receive(escaped.size()) == escaped);
}

// The system takes some bytes for a program that reads nothing; then the driver keeps them until it
// has no more room.
TEST_F(BridgeTest, BytesAloneGoThroughUnchangedOnceTheyAreRead) {
  constexpr std::size_t kFarMoreThanBuffers = 50'000'000;
  const Bridge bridge(L"--listen 127.0.0.1:0 --raw");
  TcpClient client(bridge.TcpPort());
  const Bytes part = Pattern(0x40000);
  EXPECT_TRUE(client.Send(part));
  EXPECT_TRUE(port_.Receives(part));
  Bytes all;
  const auto goes_on = [&] {
    const auto sent = static_cast<std::ptrdiff_t>(port_.Send(part));
    all.insert(all.end(), part.begin(), part.begin() + sent);
    return sent != 0;
  };
  while (all.size() < kFarMoreThanBuffers && Eventually(goes_on, 1000))
    continue;
  EXPECT_LT(all.size(), kFarMoreThanBuffers) << "what the program does not read is kept";
  EXPECT_TRUE(client.Receive(all.size()) == all);
}

TEST_F(BridgeTest, PipeCarriesBytesForOneProgramAfterAnother) {
  const std::wstring path = LR"(\\.\pipe\bridge_)" + std::to_wstring(::GetCurrentProcessId());
  const Bridge bridge(L"--pipe " + path);
  for (std::uint32_t program = 1; program <= 2; ++program) {
    RawClient pipe(path.c_str());
    const Bytes sent = Pattern(300, program);
    EXPECT_TRUE(pipe.Send(sent));
    EXPECT_TRUE(port_.Receives(sent));
    port_.Send(ToBytes("x"));
    EXPECT_EQ(pipe.ReceiveSome(), ToBytes("x"));
    pipe.Disconnect();
    EXPECT_TRUE(bridge.Prints(L" has gone\n"));
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
    TcpClient(bridge.TcpPort()).ExpectRefusal(L" is in use by another program");
    first.Command({kSetControl, 9});
  }
  EXPECT_TRUE(bridge.Prints(L" has gone\n"));
  ExpectServes(bridge);
}

TEST_F(BridgeTest, NextProgramComesAtOnceAndFindsTheLineAsTheOptionsHaveIt) {
  const Bridge bridge(L"--listen 0 --baud 9600 --idle-timeout 2");
  for (int program = 0; program < 8; ++program) {
    TelnetClient client(bridge.TcpPort());
    EXPECT_EQ(port_.State().outputs, std::uint32_t{OUTPUT_DTR | OUTPUT_RTS});
    EXPECT_TRUE(client.Send(ComPort({kSetBaudRate, 0, 0, 0, 0})));
    client.ExpectNotice({kSetBaudRate + kToClient, 0, 0, 0x25, 0x80});
    client.Command({kSetBaudRate, 0, 0, 1, 44});
    client.Command({kSetControl, 9});  // DTR off
    EXPECT_TRUE(client.Send({0xFF, 0xF3}));
    EXPECT_TRUE(Eventually([&] { return port_.State().outputs == (OUTPUT_RTS | OUTPUT_BREAK); }));
  }
  TelnetClient silent(bridge.TcpPort());
  EXPECT_EQ(silent.Receive(1), Bytes());
  EXPECT_TRUE(bridge.Prints(L" is idle and is cut off\n"));
}

TEST_F(BridgeTest, ReleasedPortIsFreeForOthersBetweenPrograms) {
  const Bridge bridge(L"--listen 0.0.0.0:0 --release");
  EXPECT_TRUE(bridge.Errors().starts_with(L"Warning: "));
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(port_.IsClosed());
    ExpectServes(bridge);
  }
}

TEST_F(BridgeTest, EndsWithTheServerUnlessItRetries) {
  const Bridge bridge(L"--listen 0 --retry");
  ExpectServes(bridge);
  const Bridge ending(L"--listen 0", L"COM" + std::to_wstring(LoopbackPort()));
  server_.Stop();
  EXPECT_EQ(ending.ExitCode(), 2u);
  EXPECT_TRUE(ending.Prints(L"the server on this machine ended the connection"));
  EXPECT_TRUE(bridge.Prints(L"trying again"));
  TcpClient(bridge.TcpPort()).ExpectRefusal(L" is not there at the moment");
  const ServerProcess next;
  EXPECT_TRUE(bridge.Prints(kName + L" is back"));
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
  EXPECT_TRUE(port_.IsClosed());
  const Bridge bridge(L"--listen 0");
  port_.Vanish();
  EXPECT_EQ(bridge.ExitCode(2 * kPatience), 4u);
  EXPECT_TRUE(bridge.Errors().starts_with(kName));
}

}  // namespace
}  // namespace system_test
