// The client's verb pipe against the real server: standard input to a port, and back.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "platform/serial.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"
#include "tests/virtual_port.h"

namespace system_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The kinds of failure, as exit codes.
constexpr DWORD kConnection = 2;
constexpr DWORD kRefused = 3;
constexpr DWORD kDevice = 4;

// A device that has vanished is noticed by a request every 5 s, which has 10 s to be answered.
constexpr DWORD kUntilDeviceIsMissed = 30'000;  // milliseconds

// No two neighbouring stretches are alike, and every value is there.
std::string Sample(std::size_t size) {
  const Bytes bytes = Pattern(size);
  return {bytes.begin(), bytes.end()};
}

std::string EveryValue() {
  std::string values;
  for (int value = 0; value < 256; ++value)
    values += static_cast<char>(value);
  return values;
}

// A client that copies to and from a port.
class PipeClient {
 public:
  explicit PipeClient(std::uint32_t port, const std::wstring& options = L"")
      : program_(L"tarnwheel-client", L"pipe . COM" + std::to_wstring(port) + L" " + options,
                 &input_) {}

  ProgramInput& input() { return input_; }
  Program& program() { return program_; }

  [[nodiscard]] bool Gives(const std::string& bytes) const {
    return Eventually([&] { return program_.OutputBytes() == bytes || !program_.Runs(); }) &&
           program_.OutputBytes() == bytes;
  }

  // Waits for the end.
  void ExpectEnd(DWORD exit_code, const std::wstring& errors, DWORD limit = kPatience) {
    EXPECT_EQ(program_.ExitCode(limit), exit_code);
    EXPECT_EQ(program_.Errors(), errors);
  }

 private:
  ProgramInput input_;
  Program program_;
};

TEST(Pipe, BringsBackWhatALoopbackIsGiven) {
  ServerProcess server;
  for (const std::string& bytes : {EveryValue(), Sample(1024 * 1024)}) {
    PipeClient client(LoopbackPort());
    client.input().Write(bytes);
    client.input().End();
    client.ExpectEnd(0, L"", 60'000);
    EXPECT_TRUE(client.program().OutputBytes() == bytes)
        << client.program().OutputBytes().size() << " of " << bytes.size() << " bytes";
  }
}

TEST(Pipe, TakesTheBytesOfADeviceAsTheyAre) {
  VirtualPort port;
  ServerProcess server;
  PipeClient client(kVirtualPort);
  client.input().Write("\r\n\x1A\n");
  EXPECT_TRUE(Eventually([&, sent = Bytes()]() mutable {
    sent = Join({sent, port.TakeSent()});
    return sent == ToBytes("\r\n\x1A\n");
  }));
  port.Receive(ToBytes(EveryValue()));
  EXPECT_TRUE(client.Gives(EveryValue()));  // at once, not at the end
  client.input().End();
  client.ExpectEnd(0, L"");
}

TEST(Pipe, StaysUntilTheLineHasBeenQuiet) {
  VirtualPort port;
  ServerProcess server;
  PipeClient client(kVirtualPort, L"--quiet 3000");
  client.input().End();
  EXPECT_TRUE(port.ComesToHave({.reads = 1}));
  ::Sleep(1000);  // the quiet time has begun
  const auto start = steady_clock::now();
  port.Receive(ToBytes("late"));
  client.ExpectEnd(0, L"");
  EXPECT_GE(steady_clock::now() - start, milliseconds(2990));
  EXPECT_EQ(client.program().OutputBytes(), "late");
  EXPECT_TRUE(port.ComesToBeClosed());
}

// Its input never ends, and the line has much to say.
TEST(Pipe, EndsWellWithCtrlC) {
  VirtualPort port;
  ServerProcess server;
  for (const DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT}) {
    PipeClient client(kVirtualPort);
    EXPECT_TRUE(port.ComesToHave({.reads = 1}));
    port.Receive(ToBytes("said"));
    EXPECT_TRUE(client.Gives("said"));
    client.program().SendConsoleEvent(event);
    client.ExpectEnd(0, L"");
    EXPECT_TRUE(port.ComesToBeClosed());
  }
}

TEST(Pipe, TellsThatTheServerHasStopped) {
  PipeClient too_early(LoopbackPort());
  too_early.ExpectEnd(kConnection, L"No server runs on this machine (0x80070002)\n");
  ServerProcess server;
  PipeClient client(LoopbackPort());
  client.input().Write("there");
  EXPECT_TRUE(client.Gives("there"));
  server.Stop();
  client.ExpectEnd(kConnection,
                   L"COM" + std::to_wstring(LoopbackPort()) +
                       L": the server on this machine ended the connection (0x800704c7)\n");
}

TEST(Pipe, ComesBackToAServerThatWasStarted) {
  const std::wstring port = L"COM" + std::to_wstring(LoopbackPort());
  PipeClient client(LoopbackPort(), L"--retry");
  const std::wstring waits = L"No server runs on this machine (0x80070002); trying again\n";
  EXPECT_TRUE(client.program().Complains(waits));
  std::wstring said = waits;
  std::string echo;
  for (const char* text : {"first ", "second ", "third"}) {
    ServerProcess server;
    EXPECT_TRUE(client.program().Complains(said += port + L" is back\n"));
    client.input().Write(text);
    EXPECT_TRUE(client.Gives(echo += text));
    server.Stop();
    said +=
        port + L": the server on this machine ended the connection (0x800704c7); trying again\n";
    EXPECT_TRUE(client.program().Complains(said));
  }
  client.program().SendConsoleEvent(CTRL_C_EVENT);
  EXPECT_EQ(client.program().ExitCode(), kConnection);
}

TEST(Pipe, TellsWhyThePortIsRefused) {
  ServerProcess server(L"--share-ports 6,77");
  RawClient holder;
  EXPECT_EQ(holder.OpenPort(kFilePort), 0u);
  PipeClient(kFilePort).ExpectEnd(kRefused,
                                  L"COM6 is in use by another program or client (0x80070020)\n");
  PipeClient(kMissingPort).ExpectEnd(kRefused, L"COM77 does not exist (0x80070002)\n");
}

TEST(Pipe, MissesTheAnswerOfADevice) {
  VirtualPort mute;
  mute.HoldForGood(IOCTL_SERIAL_SET_BAUD_RATE);
  VirtualPort deaf(kOtherVirtualPort);
  deaf.HoldForGood(REQUEST_WRITE);
  ServerProcess server;
  PipeClient of_mute(kVirtualPort);
  PipeClient of_deaf(kOtherVirtualPort);
  of_deaf.input().Write("x");
  of_mute.ExpectEnd(kDevice, L"COM7: no answer within 2000 ms (0x800705b4)\n");
  of_deaf.ExpectEnd(kDevice, L"COM8: no answer within 5000 ms (0x800705b4)\n");
}

TEST(Pipe, NoticesThatADeviceHasVanished) {
  VirtualPort port;
  ServerProcess server;
  PipeClient client(kVirtualPort);
  EXPECT_TRUE(port.ComesToHave({.reads = 1}));
  port.Vanish();
  client.ExpectEnd(kDevice, L"COM7: no answer within 10000 ms (0x800705b4)\n",
                   kUntilDeviceIsMissed);
}

}  // namespace
}  // namespace system_test
