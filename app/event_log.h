// The service's entries in the system's event log: what an administrator has to do something about,
// and nothing in daily work.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace tarnwheel {

// Makes this executable, where it lies now, the source whose messages the log shows. Needs an
// administrator's rights. Returns the Win32 error code.
[[nodiscard]] DWORD register_event_source();

void remove_event_source() noexcept;

// Each writes an entry with the system's words for `code`. What the log refuses is dropped.
void report_failed_start(HRESULT code) noexcept;
void report_failed_run(HRESULT code) noexcept;
void report_failed_log(HRESULT code) noexcept;

}  // namespace tarnwheel
