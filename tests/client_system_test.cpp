// The client program against the real server.
#include <gtest/gtest.h>

#include "server/test_ports.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

using tarnwheel::test::test_port;

constexpr wchar_t kClient[] = L"tarnwheel-client";
constexpr wchar_t kAnswerMailslot[] =
    LR"(\\.\mailslot\kelvarine_{1E8A6C42-D97B-4F30-8C5E-43B1A0F7D926}_v1.01)";

void ExpectSuccess(std::wstring_view arguments, const std::wstring& output) {
  const CompletedRun client(kClient, arguments);
  EXPECT_EQ(client.exit_code, 0u);
  EXPECT_EQ(client.output, output);
  EXPECT_EQ(client.errors, L"");
}

// The kinds of failure, as exit codes.
constexpr DWORD kUsage = 1;
constexpr DWORD kConnection = 2;
constexpr DWORD kRefused = 3;

void ExpectFailure(DWORD exit_code, std::wstring_view arguments, const std::wstring& errors) {
  const CompletedRun client(kClient, arguments);
  EXPECT_EQ(client.exit_code, exit_code);
  EXPECT_EQ(client.output, L"");
  EXPECT_EQ(client.errors, errors);
}

std::wstring SendTo(std::uint32_t port, const std::wstring& text) {
  return L"send . COM" + std::to_wstring(port) + L" \"" + text + L"\"";
}

std::wstring HostName() {
  std::wstring name(256, L'\0');
  DWORD size = 256;
  Require(::GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size), "GetComputerNameExW");
  name.resize(size);
  return name;
}

TEST(Client, TellsThatNoServerRuns) {
  ExpectFailure(kConnection, L"list .", L"No server runs on this machine (0x80070002)\n");
  ExpectFailure(kConnection, SendTo(LoopbackPort(), L"x"),
                L"No server runs on this machine (0x80070002)\n");
}

TEST(Client, ListsTheSharedPorts) {
  const test_port second(L"COM203", L"Gerät ж");
  const test_port hidden(L"COM202", L"Hidden");
  const test_port first(L"COM201", L"First");
  ServerProcess server(L"--share-ports 201,203");
  ExpectSuccess(L"list .", L"COM201\tFirst\nCOM203\tGerät ж\n");
  ExpectSuccess(L"list . --json",
                L"[\n  {\"port\": \"COM201\", \"name\": \"First\"},\n"
                L"  {\"port\": \"COM203\", \"name\": \"Gerät ж\"}\n]\n");
}

TEST(Client, SendsATextAndPrintsTheEcho) {
  ServerProcess server;
  for (const std::wstring text : {L"one line", L"Grüße, ж and 漢"})
    ExpectSuccess(SendTo(LoopbackPort(), text), text + L"\n");
}

TEST(Client, TellsWhyAPortCannotBeOpened) {
  ServerProcess server(L"--share-ports 6,77," + std::to_wstring(LoopbackPort()));
  RawClient holder;
  EXPECT_EQ(holder.OpenPort(kFilePort), 0u);
  ExpectFailure(kRefused, SendTo(kFilePort, L"x"),
                L"COM6 is in use by another program or client (0x80070020)\n");
  ExpectFailure(kRefused, SendTo(kMissingPort, L"x"), L"COM77 does not exist (0x80070002)\n");
  ExpectFailure(kRefused, SendTo(200, L"x"),
                L"COM200 is in use by another program or client, or is not "
                L"shared (0x80070005)\n");
}

// What becomes of the query to the other machines, and the note about it, depends on the network;
// an answer arrives more than once where that includes this machine.
TEST(Client, FindsTheServerOfThisMachineOnce) {
  ServerProcess server(L"--no-discovery-");
  ASSERT_TRUE(server.Logs(L"INFO", L"Auto-discovery has been started"));
  const CompletedRun client(kClient, L"discover --timeout 700");
  EXPECT_EQ(client.exit_code, 0u);
  const std::wstring lines = L"\n" + client.output;
  const std::wstring own_line = L"\n" + HostName() + L"\n";
  const auto found = lines.find(own_line);
  ASSERT_NE(found, std::wstring::npos);
  EXPECT_EQ(lines.find(own_line, found + 1), std::wstring::npos);
}

TEST(Client, TellsThatNobodyAnswersWithinTheLimit) {
  ServerProcess server;
  const ULONGLONG start = ::GetTickCount64();
  const CompletedRun client(kClient, L"discover --timeout 700");
  EXPECT_GE(::GetTickCount64() - start, 690u);
  EXPECT_EQ(client.exit_code, kConnection);
  EXPECT_EQ(client.output, L"");
  EXPECT_TRUE(client.errors.ends_with(L"No server answered within 700 ms (0x800705b4)\n"));
}

TEST(Client, LooksForServersOneAtATime) {
  const Tamrin::unique_file taken(
      ::CreateMailslotW(kAnswerMailslot, 0, MAILSLOT_WAIT_FOREVER, nullptr));
  ASSERT_TRUE(taken);
  ExpectFailure(kConnection, L"discover", L"Another discover runs on this machine (0x800700b7)\n");
}

TEST(Client, PointsToTheHelpAfterAnErrorOfTheCommandLine) {
  ExpectFailure(kUsage, L"lst .",
                L"Error: Invalid verb specified.\n"
                L"\"tarnwheel-client --help\" shows what can be asked for.\n");
  ExpectFailure(kUsage, L"list . --baud 9600",
                L"Error: Invalid command line argument specified\n"
                L"\"tarnwheel-client list --help\" shows what can be asked for.\n");
}

TEST(Client, HelpIsNoFailure) {
  for (const std::wstring arguments : {L"--help", L"-?", L"list --help", L"send -?"}) {
    const CompletedRun client(kClient, arguments);
    EXPECT_EQ(client.exit_code, 0u);
    EXPECT_EQ(client.output.rfind(L"Usage: tarnwheel-client ", 0), 0u);
    EXPECT_EQ(client.errors, L"");
  }
}

}  // namespace
}  // namespace system_test
