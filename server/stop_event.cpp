#include "server/stop_event.h"

#include "async/errors.h"
#include "rpc/security_descriptor.h"

namespace tarnwheel {
namespace {

constexpr wchar_t kStopEvent[] =
    LR"(Global\kelvarine_{E7093B5D-2C4F-4A61-B8E2-9D05F3A7C614}_v1.01)";

// The descriptor of a running server's event grants only the right to signal it, so CreateEventW,
// which requests all rights, is denied access instead of reporting that the event exists.
bool exists() noexcept {
  return static_cast<bool>(
      Tamrin::unique_handle(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent)));
}

}  // namespace

Tamrin::unique_handle create_stop_event() {
  const auto security = tether::security_descriptor::everyone(EVENT_MODIFY_STATE);
  SECURITY_ATTRIBUTES attributes = security.attributes();
  Tamrin::unique_handle event(::CreateEventW(&attributes, TRUE, FALSE, kStopEvent));
  const DWORD error = ::GetLastError();
  if (event && error != ERROR_ALREADY_EXISTS)
    return event;
  const bool taken = event || (error == ERROR_ACCESS_DENIED && exists());
  ostra::details::throw_win32(taken ? ERROR_ALREADY_EXISTS : error);
}

}  // namespace tarnwheel
