// The exceptions for platform failures, and the only conversion of error codes to HRESULTs.
#pragma once

#include "platform/win32.h"

namespace ostra::details {

// A failure of the platform. Carries the HRESULT and nothing else.
class hresult_error {
 public:
  explicit hresult_error(HRESULT code) noexcept : code_(code) {}
  [[nodiscard]] HRESULT code() const noexcept { return code_; }

 private:
  HRESULT code_;
};

// The operation was cancelled; its code is always 0x800704C7.
class operation_cancelled : public hresult_error {
 public:
  operation_cancelled() noexcept;
};

// A wait on a timer was cancelled.
class timer_cancelled : public operation_cancelled {};

// A Win32 error e > 0 becomes (e & 0xFFFF) | 0x80070000; zero and negative values are kept.
[[nodiscard]] HRESULT to_hresult(DWORD win32_error) noexcept;

// GetLastError(), converted by the rule above. Call it on the line after the failed call.
[[nodiscard]] HRESULT last_hresult() noexcept;

// Throws operation_cancelled for ERROR_CANCELLED (1223), hresult_error for everything else.
[[noreturn]] void throw_win32(DWORD win32_error);
[[noreturn]] void throw_hresult(HRESULT code);
[[noreturn]] void throw_last_error();

// Throw from GetLastError() when the argument reports a failed call: false, INVALID_HANDLE_VALUE,
// null. A valid handle or pointer is returned.
void check_bool(BOOL succeeded);
HANDLE check_file(HANDLE handle);
template <class T>
T* check_pointer(T* pointer) {
  if (pointer == nullptr)
    throw_last_error();
  return pointer;
}

// Throws when `code` is a failure.
void check_hresult(HRESULT code);

// The code of the exception being handled: that of an hresult_error, E_OUTOFMEMORY for
// std::bad_alloc, E_UNEXPECTED for anything else. Only inside a catch block.
[[nodiscard]] HRESULT current_hresult() noexcept;

}  // namespace ostra::details

namespace ostra {
using details::hresult_error;
using details::operation_cancelled;
using details::timer_cancelled;
}  // namespace ostra
