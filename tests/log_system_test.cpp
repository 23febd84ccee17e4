// The log file and its copy on the screen.
#include <gtest/gtest.h>

#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

const LogLine kSeparator = {L"=====", L"=====", L"====="};

// Runs a server that one client visits.
void RunOnce(const TemporaryFile& log, std::wstring_view arguments = L"") {
  ServerProcess server(L"--log-path \"" + log.path() + L"\" " + std::wstring(arguments));
  RawClient client;
  EXPECT_EQ(client.OpenPort(kMissingPort), 0x80070002);
}

std::vector<std::wstring> Messages(const std::vector<LogLine>& lines) {
  std::vector<std::wstring> messages;
  for (const auto& line : lines)
    messages.push_back(line.message);
  return messages;
}

TEST(LogFile, IsContinuedByTheNextRun) {
  const TemporaryFile log(L".log");
  RunOnce(log);
  const auto first = ParseLog(log.Content());
  RunOnce(log);
  const auto both = ParseLog(log.Content());
  ASSERT_GE(first.size(), 2u);
  EXPECT_EQ(first.back(), kSeparator);
  EXPECT_EQ(first.front().message, L"Logging system is initialized");
  ASSERT_EQ(both.size(), 2 * first.size());
  EXPECT_TRUE(std::equal(first.begin(), first.end(), both.begin()));
  EXPECT_EQ(Messages(std::vector(both.begin() + std::ptrdiff_t(first.size()), both.end())),
            Messages(first));
}

TEST(LogScreen, HasTheLinesOfTheFile) {
  const TemporaryFile log(L".log");
  ServerProcess server(L"--log-path \"" + log.path() + L"\"");
  EXPECT_NE(RawClient().OpenPort(kMissingPort), 0u);
  server.Stop();
  std::wstring expected;
  auto lines = ParseLog(log.Content());
  ASSERT_FALSE(lines.empty());
  lines.pop_back();  // the separator is of the file only
  for (const auto& line : lines)
    expected += line.time + L"\t" + line.level + L"\t" + line.message + L"\n";
  EXPECT_EQ(server.program().Output(), expected);
}

TEST(LogScreen, IsSilentOnRequest) {
  ServerProcess server(L"--no-screen-log");
  server.Stop();
  EXPECT_EQ(server.program().Output(), L"");
  EXPECT_EQ(server.program().Errors(), L"");
}

// A character that no code page of this machine has must silence neither its line nor later ones.
// Wine accepts a descriptor with such a character in it, and so comes to the later lines.
TEST(LogScreen, HasEveryCharacter) {
  Program server(kServer, L"--no-discovery --security-descriptor \"D:\x6F22\x0436\xE4\"");
  const bool started = server.Prints(kStarted) && SignalStopEvent();
  EXPECT_EQ(server.ExitCode() == 0u, started);
  EXPECT_TRUE(server.Prints(L"\"D:\x6F22\x0436\xE4\"...\n"));
  EXPECT_EQ(server.Prints(kStopped), started);
}

}  // namespace
}  // namespace system_test
