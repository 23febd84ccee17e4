#include "client/interrupt.h"

#include "async/errors.h"

namespace tarnwheel::client {
namespace {

constexpr DWORD kLongestHold = 4000;  // milliseconds

// Made once and never closed: the handler may use them until the process ends.
HANDLE interrupted = nullptr;
HANDLE in_order = nullptr;

HANDLE make_event() {
  return ostra::details::check_pointer(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

BOOL WINAPI on_console_event(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT)
    return FALSE;
  const bool again = ::WaitForSingleObject(interrupted, 0) == WAIT_OBJECT_0;
  ::SetEvent(interrupted);
  if (event == CTRL_CLOSE_EVENT)
    ::WaitForSingleObject(in_order, kLongestHold);
  return again ? FALSE : TRUE;
}

}  // namespace

interrupt::interrupt() {
  if (interrupted == nullptr)
    interrupted = make_event();
  if (in_order == nullptr)
    in_order = make_event();
  ostra::details::check_bool(::ResetEvent(interrupted));
  ostra::details::check_bool(::ResetEvent(in_order));
  ostra::details::check_bool(::SetConsoleCtrlHandler(&on_console_event, TRUE));
}

interrupt::~interrupt() {
  ::SetConsoleCtrlHandler(&on_console_event, FALSE);
  ::SetEvent(in_order);
}

HANDLE interrupt::event() const noexcept {
  return interrupted;
}

bool interrupt::wait(std::chrono::milliseconds time) const noexcept {
  return ::WaitForSingleObject(interrupted, static_cast<DWORD>(time.count())) == WAIT_OBJECT_0;
}

}  // namespace tarnwheel::client
