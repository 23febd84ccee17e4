// The server as a program and as a service: its help and errors, starts that fail, the log, and the
// ways of stopping it.
#include <gtest/gtest.h>

#include "tests/support/raw_client.h"
#include "tests/support/server_process.h"

#include <winsvc.h>  // needs <windows.h> before it

namespace system_test {
namespace {

constexpr wchar_t kLogo[] = L"Quorvane Tarnwheel Server\nVersion 1.01.00.0000\n\n";
constexpr wchar_t kHelp[] = L"Command-line parameters:\n\n    -?, --help";

void Expect(const std::wstring& arguments, DWORD exit_code, const std::wstring& output,
            const std::wstring& errors) {
  const CompletedRun run(kServer, arguments);
  EXPECT_EQ(run.exit_code, exit_code) << std::string(arguments.begin(), arguments.end());
  EXPECT_TRUE(run.output.starts_with(output));
  EXPECT_TRUE((run.output + run.errors).ends_with(errors));
  EXPECT_TRUE(run.errors.empty() || !errors.empty());
  EXPECT_EQ(run.output.find(kStarted), std::wstring::npos);
}

TEST(CommandLine, HelpFollowsTheLogoAndErrorsFollowTheHelp) {
  for (const wchar_t* arguments : {L"-?", L"--nologo --help", L"--help --log-level nonsense"})
    Expect(arguments, 0, std::wstring(kLogo) + kHelp, L"");
  const std::pair<const wchar_t*, std::wstring> wrong[] = {
      {L"--help --no-such-thing", L"Invalid command line argument specified"},
      {L"--log-path", L"Command line argument's value is missing"},
      {L"--nologo --log-level INFO", L"Invalid logging level specified."},
      {L"--nologo --share-ports 1;2", L"Invalid format for --share-ports parameter."}};
  for (const auto& [arguments, message] : wrong)
    Expect(arguments, 0, kHelp, L"Error: " + message + L"\n");  // no logo, the help first
}

TEST(Start, IsRefusedWithTheErrorAndLeavesTheNameFree) {
  const auto fails = [](const std::wstring& arguments, DWORD code, const std::wstring& errors) {
    Expect(L"--nologo --no-discovery " + arguments, code, L"", errors);
  };
  fails(L"--security-descriptor nonsense", 0x80070057, L"Error starting server 0x80070057\n");
  fails(LR"(--log-path "C:\no such folder\server.log")", 0x80004004,
        L"Error initializing logging system. Check that the log file path is correct and "
        L"sufficient rights to access it are available to the current user.\n"
        L"This is a critical error. The server will now quit.\n");
  {
    const Tamrin::unique_file squatter(
        ::CreateNamedPipeW(kPipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
    fails(L"", 0x800700E7, L"Error starting server 0x800700e7\n");
  }
  const ServerProcess first(L"--security-descriptor D:");
  EXPECT_TRUE(first.Logs(L"\tINFO\tStarting server with security descriptor \"D:\"...\n"));
  fails(L"", 0x800700B7, L"Error starting server 0x800700b7\n");
  EXPECT_EQ(RawClient().OpenPort(kMissingPort), kFileNotFound);
}

// The next run appends to the log. The screen shows the same lines, character for character, except
// the separator. Wine accepts a security descriptor with such characters.
TEST(Log, IsTheSameInTheFileAndOnTheScreen) {
  const TemporaryFile log;
  const std::wstring options = L"--log-path \"" + log.path + L"\" ";
  std::wstring expected = L"\xFEFF";
  for (int run = 0; run < 2; ++run) {
    const ServerProcess server(options + L"--security-descriptor \"D:\x6F22\x0436\xE4\"");
    server.Stop();
    expected += server.Output() + L"=====\t=====\t=====\n";
    const std::string content = log.Content();
    std::wstring text(content.size() / 2, L'\0');
    content.copy(reinterpret_cast<char*>(text.data()), content.size());
    std::erase(text, L'\r');
    EXPECT_EQ(text, expected);
    EXPECT_EQ(server.Count(L"\tLogging system is initialized\n"), 1);
    EXPECT_EQ(server.Count(L"\tAuto-discovery is turned off\n"), 1);
    EXPECT_NE(server.Count(L"\x6F22\x0436\xE4"), 0);
  }
  const Program silent(kServer, L"--nologo --no-screen-log");
  EXPECT_EQ(RawClient().OpenPort(kMissingPort), kFileNotFound);
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_EQ(silent.ExitCode(), 0u);
  EXPECT_EQ(silent.Output() + silent.Errors(), L"");
}

// Expects the log of an orderly stop after `console_requests` console events, which may coalesce.
void ExpectOrderlyEnd(const ServerProcess& server, int console_requests) {
  const int requests = server.Count(L"\tDEBUG\tStop event received, stopping server...\n");
  EXPECT_EQ(requests != 0, console_requests != 0);
  EXPECT_LE(requests, console_requests);
  EXPECT_EQ(server.Count(L" disconnected\n"), 1);
  EXPECT_TRUE(server.Output().ends_with(L"\tServer has been stopped\n"));
}

// The server handles console events only some time after it has logged that it serves; a client's
// round trip takes longer than that.
TEST(Stop, FollowsEveryConsoleEventAlsoWhileStopping) {
  const DWORD events[] = {CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT};
  for (const DWORD event : events) {
    for (const int times : {1, 5}) {
      SCOPED_TRACE(event);
      const ServerProcess server;
      RawClient client;
      EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
      server.SendConsoleEvent(event, times);
      EXPECT_EQ(server.ExitCode(), 0u);
      ExpectOrderlyEnd(server, times);
    }
  }
}

// Any account may signal the event, and not even its owner may do more with it.
TEST(Stop, FollowsTheEventThatAnybodyMaySignalAndNothingElse) {
  const ServerProcess server;
  EXPECT_FALSE(Tamrin::unique_handle(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kStopEvent)));
  EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  RawClient client;
  EXPECT_EQ(client.OpenPort(kMissingPort), kFileNotFound);
  server.Stop();
  EXPECT_TRUE(client.ServerHangsUp());
  ExpectOrderlyEnd(server, 0);
  EXPECT_FALSE(SignalStopEvent()) << "it goes with the server";
}

// The service, run by the service control manager and observed through it.

struct ServiceHandleTraits {
  using pointer = SC_HANDLE;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer handle) noexcept { ::CloseServiceHandle(handle); }
};
using ServiceHandle = Tamrin::unique_resource<ServiceHandleTraits>;

class Service {
 public:
  explicit Service(const wchar_t* program) {
    EXPECT_EQ(CompletedRun(program, L"--install-service").exit_code, 0u);
    service_.reset(::OpenServiceW(manager_.get(), L"qrvtwsrv", SERVICE_ALL_ACCESS));
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() {
    service_.reset();  // an open handle would delay the deletion
    CompletedRun(kServer, L"--uninstall-service");
  }

  [[nodiscard]] SERVICE_STATUS_PROCESS Status() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    ::QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof status, &needed);
    return status;
  }

  // Starts the service, which must reach the state with exit code 0. Wine looks at the state after
  // the start, and fails the call with 1053 if the service has already stopped by itself.
  void Start(DWORD state = SERVICE_RUNNING) const {
    const bool started = ::StartServiceW(service_.get(), 0, nullptr);
    const DWORD error = started ? ERROR_SUCCESS : ::GetLastError();
    EXPECT_TRUE(started || (state == SERVICE_STOPPED && error == ERROR_SERVICE_REQUEST_TIMEOUT))
        << error;
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState != SERVICE_START_PENDING; }));
    EXPECT_EQ(Status().dwCurrentState, state);
    EXPECT_EQ(Status().dwWin32ExitCode, 0u);
  }

  void Control(DWORD control) const {
    SERVICE_STATUS status = {};
    EXPECT_TRUE(::ControlService(service_.get(), control, &status)) << ::GetLastError();
  }

  void ExpectStopped() const {
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState == SERVICE_STOPPED; }));
    EXPECT_EQ(Status().dwWin32ExitCode, 0u);
  }

 private:
  const ServiceHandle manager_{::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
  ServiceHandle service_;
};

// A driver that does not release its port makes the stop slow.
TEST(ServiceControls, AreAcceptedAndReported) {
  const Service service(L"faulty-server");
  {
    const ServerProcess by_hand;
    service.Start(SERVICE_STOPPED);
    EXPECT_EQ(RawClient().OpenPort(kMissingPort), kFileNotFound) << "the first one serves on";
  }
  service.Start();
  EXPECT_TRUE(SignalStopEvent());
  service.ExpectStopped();
  service.Start();
  EXPECT_EQ(service.Status().dwControlsAccepted,
            DWORD{SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN});
  EXPECT_EQ(service.Status().dwWaitHint, 0u);
  service.Control(SERVICE_CONTROL_INTERROGATE);
  EXPECT_EQ(service.Status().dwCurrentState, DWORD{SERVICE_RUNNING});
  FaultSwitch faults(service.Status().dwProcessId);
  RawClient client, holder(kLoopbackPort);
  faults.Block("CloseHandle");
  holder.Disconnect();
  EXPECT_TRUE(faults.Strikes());
  service.Control(SERVICE_CONTROL_STOP);
  EXPECT_EQ(service.Status().dwControlsAccepted, 0u);
  EXPECT_EQ(service.Status().dwWaitHint, 15000u);
  EXPECT_TRUE(client.ServerHangsUp());
  DWORD checkpoint = 0;
  EXPECT_TRUE(Eventually([&] {
    const auto status = service.Status();
    const bool rises =
        status.dwCurrentState == SERVICE_STOP_PENDING && status.dwCheckPoint != checkpoint;
    checkpoint += rises;
    EXPECT_TRUE(!rises || status.dwCheckPoint == checkpoint);
    return status.dwCurrentState == SERVICE_STOPPED;
  }));
  EXPECT_GE(checkpoint, 2u);  // during the three seconds of the stop
  service.ExpectStopped();
}

}  // namespace
}  // namespace system_test
