#include "async/errors.h"

#include <new>

namespace ostra::details {

operation_cancelled::operation_cancelled() noexcept : hresult_error(to_hresult(ERROR_CANCELLED)) {}

HRESULT to_hresult(DWORD win32_error) noexcept {
  const auto code = static_cast<HRESULT>(win32_error);
  if (code <= 0)
    return code;
  return static_cast<HRESULT>((win32_error & 0xFFFFu) | 0x80070000u);
}

HRESULT last_hresult() noexcept {
  return to_hresult(::GetLastError());
}

void throw_win32(DWORD win32_error) {
  throw_hresult(to_hresult(win32_error));
}

void throw_hresult(HRESULT code) {
  if (code == to_hresult(ERROR_CANCELLED))
    throw operation_cancelled();
  throw hresult_error(code);
}

void throw_last_error() {
  throw_win32(::GetLastError());
}

void check_bool(BOOL succeeded) {
  if (!succeeded)
    throw_last_error();
}

HANDLE check_file(HANDLE handle) {
  if (handle == INVALID_HANDLE_VALUE)
    throw_last_error();
  return handle;
}

void check_hresult(HRESULT code) {
  if (FAILED(code))
    throw_hresult(code);
}

HRESULT current_hresult() noexcept {
  try {
    throw;
  } catch (const hresult_error& error) {
    return error.code();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

}  // namespace ostra::details
