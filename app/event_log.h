// The service's entries in the system's event log: only failures that an administrator must act on,
// nothing in normal operation.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace tarnwheel {

// Registers this executable, at its current path, as the source of the service's events. Needs
// administrator rights. Returns the Win32 error code.
[[nodiscard]] DWORD register_event_source();

void remove_event_source() noexcept;

// Each writes an entry that explains `code`. An entry that the log refuses is dropped.
void report_failed_start(HRESULT code) noexcept;
void report_failed_run(HRESULT code) noexcept;
void report_failed_log(HRESULT code) noexcept;

}  // namespace tarnwheel
