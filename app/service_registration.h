// The program's registration with the service control manager.
#pragma once

#include "platform/unique_resource.h"
#include "platform/win32.h"

// After win32.h.
#include <winsvc.h>

namespace tarnwheel {

inline constexpr wchar_t kServiceName[] = L"qrvtwsrv";

struct service_handle_traits {
  using pointer = SC_HANDLE;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer handle) noexcept { ::CloseServiceHandle(handle); }
};
using unique_service_handle = Tamrin::unique_resource<service_handle_traits>;

// Both need administrator rights, report failures on the console, and return the Win32 error code,
// or 0 on success, which becomes the process's exit code.

// Registers this executable, at its current path, as a service that starts with the system
// (delayed) under the local service account. Returns 183 when it is registered already. Does not
// start it.
[[nodiscard]] DWORD install_service();

// Stops the service, waiting as long as it takes; removes its registration and event source.
[[nodiscard]] DWORD uninstall_service();

}  // namespace tarnwheel
