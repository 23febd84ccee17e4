// The service, under the system's service control manager and watched through it.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/program.h"
#include "tests/raw_client.h"
#include "tests/serial_ports.h"
#include "tests/server_process.h"

// After win32.h.
#include <winsvc.h>

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

// State and checkpoint, as the service control manager tells them.
struct Report {
  DWORD state;
  DWORD checkpoint;
  bool operator==(const Report&) const = default;
};

class Service : public ::testing::Test {
 protected:
  Service() {
    Uninstall();
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kParameters);
  }
  ~Service() override {
    Uninstall();
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kParameters);
  }

  static CompletedRun Install() { return CompletedRun(kServer, L"--install-service"); }
  static CompletedRun Uninstall() { return CompletedRun(kServer, L"--uninstall-service"); }

  [[nodiscard]] ServiceHandle Open() const {
    return ServiceHandle(::OpenServiceW(manager_.get(), kService, SERVICE_ALL_ACCESS));
  }

  // Puts another executable of this build in the service's place.
  void InstallAs(const std::wstring& path) const {
    const ServiceHandle service(
        ::CreateServiceW(manager_.get(), kService, kService, SERVICE_ALL_ACCESS,
                         SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                         path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    Require(static_cast<bool>(service), "CreateServiceW");
  }

  void SetParameter(const wchar_t* name, DWORD type, const void* data, std::size_t size) const {
    Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kParameters, name, type, data,
                              static_cast<DWORD>(size)) == ERROR_SUCCESS,
            "RegSetKeyValueW");
  }
  void SetSharedPorts(const std::vector<DWORD>& numbers) const {
    SetParameter(L"SharedPorts", REG_BINARY, numbers.data(), numbers.size() * sizeof(DWORD));
  }

  [[nodiscard]] SERVICE_STATUS_PROCESS Status() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    ::QueryServiceStatusEx(Open().get(), SC_STATUS_PROCESS_INFO,
                           static_cast<BYTE*>(static_cast<void*>(&status)), sizeof status, &needed);
    return status;
  }

  // Starts the service and waits until it runs or has stopped; returns the state.
  DWORD Start() const {
    EXPECT_TRUE(::StartServiceW(Open().get(), 0, nullptr)) << ::GetLastError();
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState != SERVICE_START_PENDING; }));
    return Status().dwCurrentState;
  }

  void Control(DWORD control) const {
    SERVICE_STATUS status = {};
    EXPECT_TRUE(::ControlService(Open().get(), control, &status)) << ::GetLastError();
  }

  // What is reported from now until the service has stopped, each report once.
  [[nodiscard]] std::vector<Report> ReportsUntilStopped() const {
    std::vector<Report> reports;
    EXPECT_TRUE(Eventually([&] {
      const auto status = Status();
      const Report report{status.dwCurrentState, status.dwCheckPoint};
      if (reports.empty() || reports.back() != report)
        reports.push_back(report);
      return report.state == SERVICE_STOPPED;
    }));
    return reports;
  }

  // The end of a start that failed: stopped, by an exit without an error.
  void ExpectStopped() const {
    EXPECT_TRUE(Eventually([&] { return Status().dwCurrentState == SERVICE_STOPPED; }));
    EXPECT_EQ(Status().dwWin32ExitCode, 0u);
  }

  const ServiceHandle manager_{::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
};

TEST_F(Service, IsRegisteredOnceWithEveryValue) {
  const auto first = Install();
  EXPECT_EQ(first.exit_code, 0u);
  EXPECT_EQ(first.output + first.errors, L"");
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kParameters);  // an installation that went no further
  const auto second = Install();
  EXPECT_EQ(second.exit_code, DWORD{ERROR_ALREADY_EXISTS});
  EXPECT_EQ(second.output, L"Service already installed\n");

  std::vector<BYTE> buffer(8192);
  DWORD needed = 0;
  auto* const config = static_cast<QUERY_SERVICE_CONFIGW*>(static_cast<void*>(buffer.data()));
  ASSERT_TRUE(::QueryServiceConfigW(Open().get(), config, 8192, &needed));
  EXPECT_EQ(config->dwServiceType, DWORD{SERVICE_WIN32_OWN_PROCESS});
  EXPECT_EQ(config->dwStartType, DWORD{SERVICE_AUTO_START});
  EXPECT_EQ(config->dwErrorControl, DWORD{SERVICE_ERROR_NORMAL});
  EXPECT_STREQ(config->lpDisplayName, L"Tarnwheel Server");
  EXPECT_STREQ(config->lpServiceStartName, LR"(NT AUTHORITY\LocalService)");
  const std::wstring path = config->lpBinaryPathName;
  EXPECT_TRUE(path.ends_with(LR"(\bin\tarnwheel-server.exe)")) << "no quotes, no arguments";

  auto* const description = static_cast<SERVICE_DESCRIPTIONW*>(static_cast<void*>(buffer.data()));
  ASSERT_TRUE(::QueryServiceConfig2W(Open().get(), SERVICE_CONFIG_DESCRIPTION, buffer.data(), 8192,
                                     &needed));
  EXPECT_STREQ(description->lpDescription, L"This service shares local serial ports over LAN");

  DWORD dummy = 1;
  DWORD size = sizeof dummy;
  EXPECT_EQ(::RegGetValueW(HKEY_LOCAL_MACHINE, kParameters, L"Dummy", RRF_RT_REG_DWORD, nullptr,
                           &dummy, &size),
            ERROR_SUCCESS);
  EXPECT_EQ(dummy, 0u);

  const auto removed = Uninstall();
  EXPECT_EQ(removed.exit_code, 0u);
  EXPECT_EQ(removed.output + removed.errors, L"");
  EXPECT_EQ(::RegGetValueW(HKEY_LOCAL_MACHINE, kParameters, L"Dummy", RRF_RT_REG_DWORD, nullptr,
                           nullptr, nullptr),
            ERROR_SUCCESS)
      << "the parameters stay";
  const auto again = Uninstall();
  EXPECT_EQ(again.exit_code, DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
  EXPECT_EQ(again.errors, L"Error opening service: 0x00000424\n");
}

TEST_F(Service, ServesWithTheParametersOfTheRegistryAndStops) {
  Install();
  SetSharedPorts({1, kFilePort});
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  const auto running = Status();
  EXPECT_EQ(running.dwControlsAccepted, DWORD{SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN});
  EXPECT_EQ(running.dwWaitHint, 0u);
  {
    RawClient client;
    EXPECT_EQ(client.OpenPort(LoopbackPort()), 0x80070005u);
    EXPECT_EQ(client.OpenPort(kFilePort), 0u);
    Control(SERVICE_CONTROL_INTERROGATE);
    EXPECT_EQ(Status().dwCurrentState, DWORD{SERVICE_RUNNING});
    Control(SERVICE_CONTROL_STOP);
    EXPECT_TRUE(client.ServerHangsUp());
  }
  const auto reports = ReportsUntilStopped();
  EXPECT_EQ(reports.back(), (Report{SERVICE_STOPPED, 0}));
  EXPECT_EQ(Status().dwWin32ExitCode, 0u);
  EXPECT_EQ(Start(), DWORD{SERVICE_RUNNING}) << "a new start after the stop";
  EXPECT_EQ(Uninstall().exit_code, 0u) << "stops it first";
  EXPECT_FALSE(Open());
}

TEST_F(Service, ReportsItsStopWhenTheEventStopsIt) {
  Install();
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  EXPECT_TRUE(SignalStopEvent());
  ExpectStopped();
}

TEST_F(Service, SlowStopIsReportedWithRisingCheckpoints) {
  wchar_t own[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, own, MAX_PATH);
  const std::wstring path = own;
  InstallAs(path.substr(0, path.rfind(L'\\')) + L"\\slow_service.exe");
  ASSERT_EQ(Start(), DWORD{SERVICE_RUNNING});
  Control(SERVICE_CONTROL_STOP);
  const auto pending = Status();
  EXPECT_EQ(pending.dwCurrentState, DWORD{SERVICE_STOP_PENDING});
  EXPECT_EQ(pending.dwControlsAccepted, 0u);
  EXPECT_EQ(pending.dwWaitHint, 15000u);
  EXPECT_EQ(ReportsUntilStopped(), (std::vector<Report>{{SERVICE_STOP_PENDING, 0},
                                                        {SERVICE_STOP_PENDING, 1},
                                                        {SERVICE_STOP_PENDING, 2},
                                                        {SERVICE_STOP_PENDING, 3},
                                                        {SERVICE_STOPPED, 0}}));
}

TEST_F(Service, UnreadableParametersEndInAStopNeverInMorePorts) {
  Install();
  const struct {
    const wchar_t* name;
    DWORD type;
    std::vector<DWORD> data;
  } rows[] = {{L"SharedPorts", REG_BINARY, {3, 1, 2}},
              {L"SharedPorts", REG_DWORD, {0}},
              {L"SecurityDescriptor", REG_SZ, {0x00580058, 0}}};
  for (const auto& row : rows) {
    SetParameter(row.name, row.type, row.data.data(), row.data.size() * sizeof(DWORD));
    EXPECT_EQ(Start(), DWORD{SERVICE_STOPPED}) << row.type;
    ExpectStopped();
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kParameters, row.name);
  }
  EXPECT_EQ(Start(), DWORD{SERVICE_RUNNING}) << "with all values missing the defaults hold";
}

TEST_F(Service, DoesNotStartBesideAnotherServer) {
  Install();
  const ServerProcess by_hand;
  EXPECT_EQ(Start(), DWORD{SERVICE_STOPPED});
  ExpectStopped();
  RawClient client;
  EXPECT_NE(client.OpenPort(kMissingPort), 0u) << "the first one serves on";
}

}  // namespace
}  // namespace system_test
