#include "console/interrupt.h"

#include "async/errors.h"

namespace console {
namespace {

Tamrin::unique_handle make_event(BOOL manual_reset) {
  return Tamrin::unique_handle(
      ostra::details::check_pointer(::CreateEventW(nullptr, manual_reset, FALSE, nullptr)));
}

}  // namespace

interrupt::interrupt()
    : requested_(make_event(TRUE)),
      ctrl_c_pressed_(make_event(FALSE)),
      handler_([this](DWORD event) { return handle(event); }) {}

bool interrupt::handle(DWORD event) noexcept {
  if (event == CTRL_C_EVENT && ctrl_c_is_key_)
    return ::SetEvent(ctrl_c_pressed_.get()) != FALSE;
  const bool is_first = !wait(std::chrono::milliseconds::zero());
  ::SetEvent(requested_.get());
  return is_first;
}

bool interrupt::wait(std::chrono::milliseconds time) const noexcept {
  return ::WaitForSingleObject(requested_.get(), static_cast<DWORD>(time.count())) == WAIT_OBJECT_0;
}

}  // namespace console
