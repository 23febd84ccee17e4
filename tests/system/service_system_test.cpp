// The service, under the system's service control manager and watched through it.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/raw_client.h"
#include "tests/support/serial_ports.h"
#include "tests/support/server_process.h"

#include <winsvc.h>  // needs <windows.h> before it

namespace system_test {
namespace {

constexpr wchar_t kService[] = L"qrvtwsrv";
constexpr wchar_t kParameters[] = LR"(Software\Quorvane\Tarnwheel Server 1.01)";

struct ServiceHandleTraits {
  using pointer = SC_HANDLE;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer handle) noexcept { ::CloseServiceHandle(handle); }
};
using ServiceHandle = Tamrin::unique_resource<ServiceHandleTraits>;

class Service : public ::testing::Test {
 protected:
  Service() { CleanUp(); }
  ~Service() override { CleanUp(); }

  static void CleanUp() {
    CompletedRun(kServer, L"--uninstall-service");
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kParameters);
  }

  static void Expect(std::wstring_view option, DWORD exit_code, const std::wstring& text) {
    const CompletedRun run(kServer, option);
    EXPECT_EQ(run.exit_code, exit_code);
    EXPECT_EQ(run.output + run.errors, text);
  }
  static void Install() { Expect(L"--install-service", 0, L""); }

  [[nodiscard]] ServiceHandle Open() const {
    return ServiceHandle(::OpenServiceW(manager_.get(), kService, SERVICE_ALL_ACCESS));
  }

  static void SetParameter(const wchar_t* name, DWORD type, const std::vector<DWORD>& data) {
    Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kParameters, name, type, data.data(),
                              static_cast<DWORD>(data.size() * sizeof(DWORD))) == ERROR_SUCCESS,
            "RegSetKeyValueW");
  }
  static bool HasParameter(const wchar_t* name) {
    return ::RegGetValueW(HKEY_LOCAL_MACHINE, kParameters, name, RRF_RT_REG_DWORD, nullptr, nullptr,
                          nullptr) == ERROR_SUCCESS;
  }

  [[nodiscard]] SERVICE_STATUS_PROCESS Status() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    ::QueryServiceStatusEx(Open().get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof status, &needed);
    return status;
  }

  // Starts the service and waits until it runs or has stopped; returns the state.
  [[nodiscard]] DWORD Start() const {
    EXPECT_TRUE(::StartServiceW(Open().get(), 0, nullptr)) << ::GetLastError();
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState != SERVICE_START_PENDING; }));
    return Status().dwCurrentState;
  }

  void Control(DWORD control) const {
    SERVICE_STATUS status = {};
    EXPECT_TRUE(::ControlService(Open().get(), control, &status)) << ::GetLastError();
  }

  // Stopped, by an exit without an error.
  void ExpectStopped() const {
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState == SERVICE_STOPPED; }));
    EXPECT_EQ(Status().dwWin32ExitCode, 0u);
  }

  const ServiceHandle manager_{::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
};

TEST_F(Service, IsRegisteredOnceWithEveryValue) {
  Install();
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kParameters);  // an installation that went no further
  Expect(L"--install-service", ERROR_ALREADY_EXISTS, L"Service already installed\n");

  BYTE buffer[8192];
  DWORD needed = 0;
  const auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
  ASSERT_TRUE(::QueryServiceConfigW(Open().get(), reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer),
                                    sizeof buffer, &needed));
  EXPECT_EQ(config->dwServiceType, DWORD{SERVICE_WIN32_OWN_PROCESS});
  EXPECT_EQ(config->dwStartType, DWORD{SERVICE_AUTO_START});
  EXPECT_EQ(config->dwErrorControl, DWORD{SERVICE_ERROR_NORMAL});
  EXPECT_STREQ(config->lpDisplayName, L"Tarnwheel Server");
  EXPECT_STREQ(config->lpServiceStartName, LR"(NT AUTHORITY\LocalService)");
  EXPECT_TRUE(std::wstring(config->lpBinaryPathName).ends_with(LR"(\bin\tarnwheel-server.exe)"))
      << "no quotes, no arguments";
  ASSERT_TRUE(::QueryServiceConfig2W(Open().get(), SERVICE_CONFIG_DESCRIPTION, buffer,
                                     sizeof buffer, &needed));
  EXPECT_STREQ(reinterpret_cast<SERVICE_DESCRIPTIONW*>(buffer)->lpDescription,
               L"This service shares local serial ports over LAN");
  EXPECT_TRUE(HasParameter(L"Dummy"));
  Expect(L"--uninstall-service", 0, L"");
  EXPECT_TRUE(HasParameter(L"Dummy")) << "the parameters stay";
  Expect(L"--uninstall-service", ERROR_SERVICE_DOES_NOT_EXIST,
         L"Error opening service: 0x00000424\n");
}

TEST_F(Service, ServesWithTheParametersOfTheRegistryAndStops) {
  Install();
  SetParameter(L"SharedPorts", REG_BINARY, {1, kFilePort});
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  EXPECT_EQ(Status().dwControlsAccepted, DWORD{SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN});
  EXPECT_EQ(Status().dwWaitHint, 0u);
  {
    RawClient client;
    EXPECT_EQ(client.OpenPort(LoopbackPort()), kAccessDenied);
    EXPECT_EQ(client.OpenPort(kFilePort), 0u);
    Control(SERVICE_CONTROL_INTERROGATE);
    EXPECT_EQ(Status().dwCurrentState, DWORD{SERVICE_RUNNING});
    Control(SERVICE_CONTROL_STOP);
    EXPECT_TRUE(client.ServerHangsUp());
  }
  ExpectStopped();
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING}) << "a new start after the stop";
  EXPECT_TRUE(SignalStopEvent());
  ExpectStopped();
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  Expect(L"--uninstall-service", 0, L"");  // stops it first
  EXPECT_FALSE(Open());
}

TEST_F(Service, FailedStartsEndInAStopNeverInMorePorts) {
  Install();
  const struct {
    const wchar_t* name;
    DWORD type;
    std::vector<DWORD> data;
  } rows[] = {{L"SharedPorts", REG_BINARY, {3, 1, 2}},
              {L"SharedPorts", REG_DWORD, {0}},
              {L"SecurityDescriptor", REG_SZ, {0x00580058, 0}}};
  for (const auto& row : rows) {
    SetParameter(row.name, row.type, row.data);
    EXPECT_EQ(Start(), DWORD{SERVICE_STOPPED}) << row.type;
    ExpectStopped();
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kParameters, row.name);
  }
  {
    const ServerProcess by_hand;
    EXPECT_EQ(Start(), DWORD{SERVICE_STOPPED});
    ExpectStopped();
    EXPECT_EQ(RawClient().OpenPort(kMissingPort), kFileNotFound) << "the first one serves on";
  }
  EXPECT_EQ(Start(), DWORD{SERVICE_RUNNING}) << "with all values missing the defaults hold";
}

// Another executable of this build in the service's place, which takes its time.
TEST_F(Service, SlowStopIsReportedWithRisingCheckpoints) {
  wchar_t own[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, own, MAX_PATH);
  const std::wstring path = own;
  ServiceHandle(
      ::CreateServiceW(manager_.get(), kService, kService, SERVICE_ALL_ACCESS,
                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                       (path.substr(0, path.rfind(L'\\')) + L"\\slow_service.exe").c_str(), nullptr,
                       nullptr, nullptr, nullptr, nullptr));
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  Control(SERVICE_CONTROL_STOP);
  EXPECT_EQ(Status().dwControlsAccepted, 0u);
  EXPECT_EQ(Status().dwWaitHint, 15000u);
  std::vector<DWORD> checkpoints;  // each once
  EXPECT_TRUE(Eventually([&] {
    const auto status = Status();
    if (status.dwCurrentState == SERVICE_STOP_PENDING &&
        (checkpoints.empty() || checkpoints.back() != status.dwCheckPoint))
      checkpoints.push_back(status.dwCheckPoint);
    return status.dwCurrentState == SERVICE_STOPPED;
  }));
  // How many there are in its three and a half seconds is the machine's affair.
  ASSERT_GE(checkpoints.size(), 3u);
  for (DWORD expected = 0; expected < checkpoints.size(); ++expected)
    EXPECT_EQ(checkpoints[expected], expected);
}

}  // namespace
}  // namespace system_test
