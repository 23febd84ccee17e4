// Help, the command line's errors, starts that fail, the log, and the ways in which a server is
// stopped.
#include <gtest/gtest.h>

#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"
#include "tests/support/server_process.h"

#include <aclapi.h>  // both need <windows.h> before them
#include <sddl.h>

namespace system_test {
namespace {

constexpr wchar_t kLogo[] = L"Quorvane Tarnwheel Server\nVersion 1.01.00.0000\n\n";
constexpr wchar_t kHelp[] = L"Command-line parameters:\n\n    -?, --help";
constexpr wchar_t kStopRequested[] = L"Stop event received, stopping server...";
const LogLine kSeparator = {L"=====", L"=====", L"====="};

TEST(CommandLine, HelpFollowsTheLogoAndErrorsFollowTheHelp) {
  for (const wchar_t* arguments : {L"-?", L"--nologo --help", L"--help --log-level nonsense"}) {
    const CompletedRun help(kServer, arguments);
    EXPECT_EQ(help.exit_code, 0u);
    EXPECT_TRUE(help.output.starts_with(std::wstring(kLogo) + kHelp));
    EXPECT_EQ(help.errors, L"");
  }
  const std::pair<const wchar_t*, const wchar_t*> wrong[] = {
      {L"--help --no-such-thing", L"Invalid command line argument specified"},
      {L"--log-path", L"Command line argument's value is missing"},
      {L"--nologo --log-level INFO", L"Invalid logging level specified."},
      {L"--nologo --share-ports 1;2", L"Invalid format for --share-ports parameter."}};
  for (const auto& [arguments, message] : wrong) {
    const CompletedRun run(kServer, arguments);
    EXPECT_EQ(run.exit_code, 0u);
    EXPECT_TRUE(run.output.starts_with(kHelp)) << "no logo, the help first";
    EXPECT_TRUE((run.output + run.errors).ends_with(L"Error: " + std::wstring(message) + L"\n"));
  }
}

void ExpectFailedStart(const std::wstring& arguments, DWORD exit_code, const std::wstring& errors) {
  const CompletedRun run(kServer, L"--nologo --no-discovery " + arguments);
  EXPECT_EQ(run.exit_code, exit_code);
  EXPECT_EQ(run.errors, errors);
  EXPECT_EQ(run.output.find(kStarted), std::wstring::npos);
  EXPECT_EQ(run.output.find(kStopped), std::wstring::npos);
}

TEST(Start, IsRefusedWithTheErrorAndLeavesTheNameFree) {
  ExpectFailedStart(L"--security-descriptor nonsense", 0x80070057,
                    L"Error starting server 0x80070057\n");
  ExpectFailedStart(
      LR"(--log-path "C:\no such folder\server.log")", 0x80004004,
      L"Error initializing logging system. Check that the log file path is correct and sufficient "
      L"rights to access it are available to the current user.\n"
      L"This is a critical error. The server will now quit.\n");
  {
    const Tamrin::unique_file squatter(
        ::CreateNamedPipeW(kPipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
    ExpectFailedStart(L"", 0x800700E7, L"Error starting server 0x800700e7\n");
  }
  const ServerProcess first(L"--security-descriptor D:");
  EXPECT_TRUE(first.Logs(L"INFO", L"Starting server with security descriptor \"D:\"..."));
  ExpectFailedStart(L"", 0x800700B7, L"Error starting server 0x800700b7\n");
  EXPECT_EQ(RawClient().OpenPort(kMissingPort), kFileNotFound);
}

// The log is continued by the next run, and the screen has the same lines, every character of them,
// except the separator. Wine accepts a descriptor with such characters.
TEST(Log, IsTheSameInTheFileAndOnTheScreen) {
  const TemporaryFile log(L".log");
  std::size_t line = 0;
  for (int run = 0; run < 2; ++run) {
    ServerProcess server(L"--security-descriptor \"D:\x6F22\x0436\xE4\" --log-path \"" +
                         log.path() + L"\"");
    server.Stop();
    const auto lines = ParseLog(log.Content());
    EXPECT_EQ(lines.back(), kSeparator);
    EXPECT_EQ(lines.at(line).message, L"Logging system is initialized");
    std::wstring expected;
    for (; line + 1 < lines.size(); ++line)
      expected +=
          lines[line].time + L"\t" + lines[line].level + L"\t" + lines[line].message + L"\n";
    ++line;
    EXPECT_EQ(server.program().Output(), expected);
  }
  ServerProcess silent(L"--no-screen-log");
  silent.Stop();
  EXPECT_EQ(silent.program().Output() + silent.program().Errors(), L"");
}

// The last lines of the log, in their order.
void ExpectOrderlyEnd(const ServerProcess& server, std::size_t console_requests) {
  EXPECT_EQ(server.Count(L"DEBUG", kStopRequested) != 0, console_requests != 0);
  EXPECT_LE(server.Count(L"DEBUG", kStopRequested), console_requests);
  EXPECT_EQ(server.Count(L"INFO", L" disconnected"), 1u);
  const auto log = server.Log();
  EXPECT_EQ(log.at(log.size() - 2).message, kStopped);
  EXPECT_EQ(log.back(), kSeparator);
}

// The server takes console events only after it has said that it serves; a client's round trip is
// longer than what it does in between.
TEST(Stop, FollowsEveryConsoleEventAlsoWhileStopping) {
  for (const DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT}) {
    for (const int times : {1, 5}) {
      SCOPED_TRACE(event);
      ServerProcess server;
      RawClient client;
      EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
      server.program().SendConsoleEvent(event, times);
      EXPECT_EQ(server.program().ExitCode(), 0u);
      ExpectOrderlyEnd(server, static_cast<std::size_t>(times));
    }
  }
}

// Wine grants SYNCHRONIZE to everybody and every right but those of the event itself to the owner,
// so the rights that are stored are looked at as well.
TEST(Stop, FollowsTheEventThatAnybodyMaySignalAndNothingElse) {
  ServerProcess server;
  EXPECT_FALSE(Tamrin::unique_handle(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kStopEvent)));
  EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  {
    const Tamrin::unique_handle event(::OpenEventW(READ_CONTROL, FALSE, kStopEvent));
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    ASSERT_EQ(::GetSecurityInfo(event.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, nullptr, nullptr, &descriptor),
              DWORD{ERROR_SUCCESS});
    const Tamrin::unique_local_memory owned(descriptor);
    ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const Tamrin::unique_local_memory owned_text(text);
    EXPECT_STREQ(text, L"D:(A;;DC;;;WD)");
  }
  RawClient client;
  EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
  server.Stop();
  EXPECT_TRUE(client.ServerHangsUp());
  ExpectOrderlyEnd(server, 0);
  EXPECT_FALSE(SignalStopEvent()) << "it goes with the server";
}

}  // namespace
}  // namespace system_test
