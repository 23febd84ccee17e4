#include "app/console_stop.h"

#include "async/errors.h"
#include "async/published.h"
#include "log/log.h"

namespace tarnwheel {
namespace {

constexpr DWORD kLongestHold = 4000;  // milliseconds

constinit ostra::published<server> running;

// Signalled when the process has nothing left to write. Never closed: a handler may wait for it
// until the process ends.
HANDLE all_written = nullptr;

BOOL WINAPI on_console_event(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT)
    return FALSE;
  running.use([](server& server) {
    logging::write(logging::debug, L"Stop event received, stopping server...");
    server.stop();
  });
  if (event == CTRL_CLOSE_EVENT)
    ::WaitForSingleObject(all_written, kLongestHold);
  return TRUE;
}

}  // namespace

console_stop::console_stop(server& server) {
  running.publish(server);
  if (!::SetConsoleCtrlHandler(&on_console_event, TRUE)) {
    const DWORD error = ::GetLastError();
    running.withdraw();
    ostra::details::throw_win32(error);
  }
}

console_stop::~console_stop() {
  running.withdraw();
}

console_close_release::console_close_release() {
  all_written = ostra::details::check_pointer(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

console_close_release::~console_close_release() {
  ::SetEvent(all_written);
}

}  // namespace tarnwheel
