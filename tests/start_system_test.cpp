// Help, the command line's errors, and starts that fail.
#include <gtest/gtest.h>

#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

#include <sddl.h>  // needs <windows.h> before it

namespace system_test {
namespace {

constexpr wchar_t kLogo[] = L"Quorvane Tarnwheel Server\nVersion 1.01.00.0000\n\n";
constexpr wchar_t kHelp[] = L"Command-line parameters:\n\n    -?, --help";
constexpr DWORD kAlreadyExists = 0x800700B7;
constexpr DWORD kAborted = 0x80004004;

bool Contains(std::wstring_view text, std::wstring_view part) {
  return text.find(part) != std::wstring_view::npos;
}

// Eight lower-case hexadecimal digits.
std::wstring Hex(DWORD code) {
  std::wstring digits;
  for (int shift = 28; shift >= 0; shift -= 4)
    digits += L"0123456789abcdef"[code >> shift & 0xF];
  return digits;
}

TEST(Help, IsShownAfterTheLogo) {
  for (const wchar_t* arguments :
       {L"--help", L"-?", L"--nologo --help", L"--help --log-level nonsense"}) {
    const CompletedRun help(kServer, arguments);
    EXPECT_EQ(help.exit_code, 0u);
    EXPECT_EQ(help.output.rfind(std::wstring(kLogo) + kHelp, 0), 0u);
    EXPECT_EQ(help.errors, L"");
  }
}

// No logo, the help, and last of all what is wrong.
TEST(CommandLine, ErrorIsShownWithTheHelp) {
  const std::pair<const wchar_t*, const wchar_t*> wrong[] = {
      {L"--helpp", L"Invalid command line argument specified"},
      {L"-help", L"Invalid command line argument specified"},
      {L"--help --no-such-thing", L"Invalid command line argument specified"},
      {L"--log-path", L"Command line argument's value is missing"},
      {L"--nologo --log-level warnings", L"Invalid logging level specified."},
      {L"--nologo --log-level INFO", L"Invalid logging level specified."},
      {L"--nologo --share-ports 1;2", L"Invalid format for --share-ports parameter."},
      {L"--nologo --share-ports -1", L"Invalid format for --share-ports parameter."},
  };
  for (const auto& [arguments, message] : wrong) {
    const CompletedRun run(kServer, arguments);
    EXPECT_EQ(run.exit_code, 0u);
    EXPECT_EQ(run.output.rfind(kHelp, 0), 0u) << "the help is not all there is";
    EXPECT_TRUE((run.output + run.errors).ends_with(L"Error: " + std::wstring(message) + L"\n"));
    EXPECT_FALSE(Contains(run.output, kStarted));
  }
}

TEST(Start, LogoComesBeforeTheLog) {
  Program server(kServer, L"--no-discovery");
  EXPECT_TRUE(server.Prints(kStarted));
  EXPECT_EQ(server.Output().rfind(kLogo, 0), 0u);
  EXPECT_EQ(server.Errors(), L"");
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_EQ(server.ExitCode(), 0u);
}

TEST(Start, SecondServerIsRefusedAndTheFirstServesOn) {
  ServerProcess first;
  RawClient client;
  const CompletedRun second(kServer, L"--nologo --no-discovery");
  EXPECT_EQ(second.exit_code, kAlreadyExists);
  EXPECT_EQ(second.errors, L"Error starting server 0x800700b7\n");
  EXPECT_FALSE(Contains(second.output, kStarted));
  EXPECT_EQ(client.OpenPort(kMissingPort), 0x80070002);
  EXPECT_EQ(RawClient().OpenPort(kMissingPort), 0x80070002);
}

// The system's own reading of a descriptor says which error the server has to end with.
TEST(Start, BadDescriptorIsRefused) {
  for (const wchar_t* sddl : {L"nonsense", L"D:(A;;GA;;;ZZ)", L"D:(A;;GA"}) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_FALSE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                        &descriptor, nullptr));
    const DWORD code = (::GetLastError() & 0xFFFF) | 0x80070000;
    const CompletedRun run(kServer,
                           L"--nologo --no-discovery --security-descriptor " + std::wstring(sddl));
    EXPECT_EQ(run.exit_code, code);
    EXPECT_EQ(run.errors, L"Error starting server 0x" + Hex(code) + L"\n");
    EXPECT_TRUE(Contains(run.output, L"Starting server with security descriptor \"" +
                                         std::wstring(sddl) + L"\"..."));
    EXPECT_FALSE(Contains(run.output, kStarted));
    EXPECT_FALSE(Contains(run.output, kStopped));
  }
}

TEST(Start, DescriptorThatLocksEverybodyOutIsAccepted) {
  ServerProcess server(L"--security-descriptor D:");
  EXPECT_TRUE(server.Logs(L"INFO", L"Starting server with security descriptor \"D:\"..."));
}

TEST(Start, TakenPipeNameIsRefused) {
  const Tamrin::unique_file squatter(
      ::CreateNamedPipeW(kPipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
  ASSERT_TRUE(static_cast<bool>(squatter));
  const CompletedRun run(kServer, L"--nologo --no-discovery");
  EXPECT_EQ(run.exit_code, 0x800700E7);  // ERROR_PIPE_BUSY
  EXPECT_EQ(run.errors, L"Error starting server 0x800700e7\n");
  EXPECT_FALSE(Contains(run.output, kStarted));
}

TEST(Start, FailureFreesTheNameForTheNextServer) {
  EXPECT_NE(CompletedRun(kServer, L"--security-descriptor nonsense").exit_code, 0u);
  ServerProcess server;
  EXPECT_EQ(RawClient().OpenPort(kMissingPort), 0x80070002);
}

TEST(Start, LogThatCannotBeOpenedEndsIt) {
  const CompletedRun run(kServer, LR"(--nologo --log-path "C:\no such folder\server.log")");
  EXPECT_EQ(run.exit_code, kAborted);
  EXPECT_EQ(run.errors,
            L"Error initializing logging system. Check that the log file path is correct and "
            L"sufficient rights to access it are available to the current user.\n"
            L"This is a critical error. The server will now quit.\n");
  EXPECT_EQ(run.output, L"");
}

}  // namespace
}  // namespace system_test
