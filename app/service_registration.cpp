#include "app/service_registration.h"

#include <string>

#include "app/event_log.h"
#include "app/executable_path.h"
#include "app/screen_text.h"
#include "console/print.h"

namespace tarnwheel {
namespace {

constexpr wchar_t kDisplayName[] = L"Tarnwheel Server";
constexpr wchar_t kDescription[] = L"This service shares local serial ports over LAN";
constexpr wchar_t kAccount[] = LR"(NT AUTHORITY\LocalService)";
constexpr DWORD kPollInterval = 1000;  // milliseconds

unique_service_handle create_service(SC_HANDLE manager) {
  const std::wstring path = executable_path();
  if (path.empty())
    return {};
  return unique_service_handle(
      ::CreateServiceW(manager, kServiceName, kDisplayName, SERVICE_ALL_ACCESS,
                       SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                       path.c_str(), nullptr, nullptr, nullptr, kAccount, nullptr));
}

// Failures are ignored: the service works without these settings.
void describe(SC_HANDLE service) {
  std::wstring text = kDescription;
  SERVICE_DESCRIPTIONW description = {text.data()};
  ::ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &description);
  SERVICE_DELAYED_AUTO_START_INFO delayed = {TRUE};
  ::ChangeServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &delayed);
}

void stop_and_wait(SC_HANDLE service) {
  SERVICE_STATUS status = {};
  if (!::ControlService(service, SERVICE_CONTROL_STOP, &status)) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_SERVICE_NOT_ACTIVE)
      report_error(L"(Non-fatal) error stopping service: {0b016xp}", error);
  }
  while (status.dwCurrentState == SERVICE_STOP_PENDING ||
         status.dwCurrentState == SERVICE_RUNNING) {
    ::Sleep(kPollInterval);
    if (!::QueryServiceStatus(service, &status))
      break;
  }
}

}  // namespace

DWORD install_service() {
  const unique_service_handle manager(
      ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
  if (!manager) {
    return report_error(L"Error connecting to service control manager: {0b016xp}",
                        ::GetLastError());
  }
  if (unique_service_handle(::OpenServiceW(manager.get(), kServiceName, MAXIMUM_ALLOWED))) {
    console::print(console::standard_stream::output, L"Service already installed\n");
    return ERROR_ALREADY_EXISTS;
  }
  const unique_service_handle service = create_service(manager.get());
  if (!service)
    return report_error(L"Error creating service: {0b016xp}", ::GetLastError());
  describe(service.get());
  return ERROR_SUCCESS;
}

DWORD uninstall_service() {
  const unique_service_handle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const unique_service_handle service(
      ::OpenServiceW(manager.get(), kServiceName, DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS));
  if (!service)
    return report_error(L"Error opening service: {0b016xp}", ::GetLastError());
  stop_and_wait(service.get());
  if (!::DeleteService(service.get()))
    return report_error(L"Error deleting service: {0b016xp}", ::GetLastError());
  remove_event_source();
  return ERROR_SUCCESS;
}

}  // namespace tarnwheel
