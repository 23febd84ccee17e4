#include "console/control_events.h"

#include <atomic>
#include <utility>

#include "async/errors.h"
#include "async/published.h"

namespace console {
namespace {

constexpr DWORD kMaxHold = 4000;  // milliseconds

constinit ostra::published<const control_handler> current;
std::atomic<bool> has_been_handled = false;  // a handler exists or has existed

// Signalled when the process has nothing left to do. Never closed: a system thread may wait for it
// until the process ends.
HANDLE finished = nullptr;

BOOL WINAPI on_console_event(DWORD event) {
  const bool is_known =
      event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT || event == CTRL_CLOSE_EVENT;
  if (!is_known || !has_been_handled)
    return FALSE;
  bool handled = true;
  current.use([&](const control_handler& handler) { handled = handler.handle(event); });
  if (event == CTRL_CLOSE_EVENT)
    ::WaitForSingleObject(finished, kMaxHold);
  return handled ? TRUE : FALSE;
}

}  // namespace

control_events::control_events() {
  if (finished == nullptr)
    finished = ostra::details::check_pointer(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ostra::details::check_bool(::ResetEvent(finished));
  has_been_handled = false;
  ostra::details::check_bool(::SetConsoleCtrlHandler(&on_console_event, TRUE));
}

control_events::~control_events() {
  // The event first: a running handler cannot be removed, and it may be waiting for the event.
  ::SetEvent(finished);
  ::SetConsoleCtrlHandler(&on_console_event, FALSE);
}

control_handler::control_handler(action on_event) : action_(std::move(on_event)) {
  current.publish(*this);
  has_been_handled = true;
}

control_handler::~control_handler() {
  current.withdraw();
}

}  // namespace console
