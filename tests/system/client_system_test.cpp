// The client program against the real server.
#include <gtest/gtest.h>

#include "tests/support/server_process.h"
#include "tests/support/test_port.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

constexpr wchar_t kClient[] = L"tarnwheel-client";
constexpr wchar_t kNoServer[] = L"No server runs on this machine (0x80070002)";
constexpr wchar_t kAnswerMailslot[] =
    LR"(\\.\mailslot\kelvarine_{1E8A6C42-D97B-4F30-8C5E-43B1A0F7D926}_v1.01)";

// The kinds of failure, as exit codes.
constexpr DWORD kUsage = 1;
constexpr DWORD kConnection = 2;
constexpr DWORD kRefused = 3;

void Expect(DWORD exit_code, const std::wstring& arguments, const std::wstring& output,
            const std::wstring& error = L"") {
  const CompletedRun client(kClient, arguments);
  EXPECT_EQ(client.exit_code, exit_code) << std::string(arguments.begin(), arguments.end());
  EXPECT_EQ(client.output, output);
  EXPECT_EQ(client.errors, error.empty() ? L"" : error + L"\n");
}

TEST(Client, TellsWhatIsWrongWithoutAServer) {
  Expect(kConnection, L"list .", L"", kNoServer);
  Expect(kUsage, L"lst .", L"",
         L"Error: Invalid verb specified: \"lst\"; expected list, discover, send, term, pipe or "
         L"bridge; see \"tarnwheel-client --help\"");
  Expect(kUsage, L"list . --baud 9600", L"",
         L"Error: Invalid command line argument specified: \"--baud\"; see \"tarnwheel-client list "
         L"--help\"");
  EXPECT_TRUE(CompletedRun(kClient, L"send -?").output.starts_with(L"Usage: tarnwheel-client "));
}

TEST(Client, ListsSendsAndTellsWhyAPortIsRefused) {
  const TestPort second(L"COM203", L"Gerät ж"), hidden(L"COM202", L"Hidden"),
      first(L"COM201", L"First\x1B");
  const std::wstring loopback = std::to_wstring(LoopbackPort());
  const ServerProcess server(L"--share-ports 6,77,201,203," + loopback);
  Expect(0, L"list .", L"COM201\tFirst\\x1B\nCOM203\tGerät ж\n");
  Expect(0, L"list . --json",
         L"[\n  {\"port\": \"COM201\", \"name\": \"First\\u001b\"},\n"
         L"  {\"port\": \"COM203\", \"name\": \"Ger\\u00e4t \\u0436\"}\n]\n");
  Expect(0, L"send . COM" + loopback + L" \"Grüße, ж and 漢\"", L"Grüße, ж and 漢\n");
  RawClient holder;
  EXPECT_EQ(holder.OpenPort(kFilePort), 0u);
  Expect(kRefused, L"send . COM6 x", L"",
         L"COM6 is in use by another program or client (0x80070020)");
  Expect(kRefused, L"pipe . COM77", L"", L"COM77 does not exist (0x80070002)");
  Expect(kRefused, L"send . COM200 x", L"",
         L"COM200 is in use by another program or client, or is not shared (0x80070005)");
}

// What becomes of the query to the other machines, and the note about it, depends on the network;
// an answer arrives more than once where that includes this machine.
TEST(Client, DiscoversTheServerOfThisMachineOnceOrTellsThatNobodyAnswers) {
  wchar_t host[256] = {};
  DWORD size = 256;
  Require(::GetComputerNameExW(ComputerNameDnsHostname, host, &size), "GetComputerNameExW");
  const std::wstring line = L"\n" + std::wstring(host) + L"\n";
  {
    const ServerProcess server(L"--no-discovery-");
    EXPECT_TRUE(server.Logs(L"\tINFO\tAuto-discovery has been started"));
    const CompletedRun client(kClient, L"discover --timeout 2000");
    EXPECT_EQ(client.exit_code, 0u);
    const std::wstring lines = L"\n" + client.output;
    EXPECT_NE(lines.find(line), std::wstring::npos);
    EXPECT_EQ(lines.find(line), lines.rfind(line));
  }
  const CompletedRun client(kClient, L"discover --timeout 700");
  EXPECT_EQ(client.exit_code, kConnection);
  EXPECT_TRUE(client.errors.ends_with(L"No server answered within 700 ms (0x800705b4)\n"));
  const Tamrin::unique_file taken(
      ::CreateMailslotW(kAnswerMailslot, 0, MAILSLOT_WAIT_FOREVER, nullptr));
  Expect(kConnection, L"discover", L"", L"Another discover runs on this machine (0x800700b7)");
}

// A client that copies to and from a port.
class PipeClient : public Program {
 public:
  explicit PipeClient(std::uint32_t port, const std::wstring& options = L"")
      : Program(kClient, L"pipe . COM" + std::to_wstring(port) + L" " + options, true) {}

  [[nodiscard]] bool Gives(const std::string& bytes) const {
    return Eventually([&] { return OutputBytes() == bytes; });
  }
};

// Every value, and so much that no buffer on the way has room for it.
TEST(Pipe, BringsBackWhatALoopbackIsGiven) {
  const ServerProcess server;
  const Bytes bytes = Pattern(1024 * 1024);
  PipeClient client(LoopbackPort());
  client.Write(bytes);
  client.EndInput();
  EXPECT_EQ(client.ExitCode(6 * kPatience), 0u);
  EXPECT_TRUE(client.OutputBytes() == bytes) << client.OutputBytes().size() << " bytes";
}

TEST(Pipe, StaysUntilTheLineHasBeenQuiet) {
  VirtualPort port;
  const ServerProcess server;
  PipeClient client(kVirtualPort, L"--quiet 1500");
  client.Write("\r\n\x1A\n");
  client.EndInput();
  EXPECT_TRUE(port.Receives("\r\n\x1A\n"));
  const ULONGLONG start = ::GetTickCount64();
  port.Send("late\r\n\x1A");
  EXPECT_TRUE(client.Gives("late\r\n\x1A"));
  EXPECT_TRUE(client.Runs()) << "at once, not at the end";
  EXPECT_EQ(client.ExitCode(), 0u);
  EXPECT_GE(::GetTickCount64() - start, 1490u);
  EXPECT_TRUE(port.IsClosed());
}

TEST(Pipe, EndsWithTheServerUnlessItRetries) {
  const std::wstring port = L"COM" + std::to_wstring(LoopbackPort());
  const std::wstring ended =
      port + L": the server on this machine ended the connection (0x800704c7)";
  const PipeClient client(LoopbackPort(), L"--retry");
  std::wstring said = kNoServer + std::wstring(L"; trying again\n");
  std::string echo;
  for (const char* text : {"first ", "second"}) {
    EXPECT_TRUE(client.Prints(said));
    const ServerProcess server;
    EXPECT_TRUE(client.Prints(said += port + L" is back\n"));
    client.Write(text);
    EXPECT_TRUE(client.Gives(echo += text));
    said += ended + L"; trying again\n";
  }
  EXPECT_TRUE(client.Prints(said));
  client.SendConsoleEvent(CTRL_C_EVENT);
  EXPECT_EQ(client.ExitCode(), 0u);
}

}  // namespace
}  // namespace system_test
