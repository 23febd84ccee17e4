#include "client/interrupt.h"

#include <atomic>

#include "async/errors.h"

namespace tarnwheel::client {
namespace {

constexpr DWORD kLongestHold = 4000;  // milliseconds

// Made once and never closed: the handler may use them until the process ends.
HANDLE interrupted = nullptr;
HANDLE in_order = nullptr;
HANDLE ctrl_c_struck = nullptr;

std::atomic<bool> ctrl_c_is_key = false;

enum class reset { by_hand, by_a_wait };

void make_event(HANDLE& event, reset kind) {
  const BOOL by_hand = kind == reset::by_hand ? TRUE : FALSE;
  if (event == nullptr)
    event = ostra::details::check_pointer(::CreateEventW(nullptr, by_hand, FALSE, nullptr));
  ostra::details::check_bool(::ResetEvent(event));
}

BOOL WINAPI on_console_event(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT)
    return FALSE;
  if (event == CTRL_C_EVENT && ctrl_c_is_key)
    return ::SetEvent(ctrl_c_struck);
  const bool again = ::WaitForSingleObject(interrupted, 0) == WAIT_OBJECT_0;
  ::SetEvent(interrupted);
  if (event == CTRL_CLOSE_EVENT)
    ::WaitForSingleObject(in_order, kLongestHold);
  return again ? FALSE : TRUE;
}

}  // namespace

interrupt::interrupt() {
  make_event(interrupted, reset::by_hand);
  make_event(in_order, reset::by_hand);
  make_event(ctrl_c_struck, reset::by_a_wait);
  ostra::details::check_bool(::SetConsoleCtrlHandler(&on_console_event, TRUE));
}

interrupt::~interrupt() {
  ::SetConsoleCtrlHandler(&on_console_event, FALSE);
  ::SetEvent(in_order);
}

HANDLE interrupt::event() const noexcept {
  return interrupted;
}

void interrupt::make_ctrl_c_a_key(bool is_key) noexcept {
  ctrl_c_is_key = is_key;
}

HANDLE interrupt::ctrl_c() const noexcept {
  return ctrl_c_struck;
}

bool interrupt::wait(std::chrono::milliseconds time) const noexcept {
  return ::WaitForSingleObject(interrupted, static_cast<DWORD>(time.count())) == WAIT_OBJECT_0;
}

}  // namespace tarnwheel::client
