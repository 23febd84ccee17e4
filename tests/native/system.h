// What else there is of Windows: errors, condition variables and what the machine says of itself.
#pragma once

#include <cstdlib>

#include "types.h"

inline thread_local DWORD last_error = ERROR_SUCCESS;
inline DWORD GetLastError() noexcept {
  return last_error;
}
inline void SetLastError(DWORD error) noexcept {
  last_error = error;
}

// The variable's own mutex is taken before the lock is given up, so a wake that follows is not
// lost.
inline void SleepConditionVariableSRW(CONDITION_VARIABLE* variable, SRWLOCK* lock,
                                      DWORD milliseconds, ULONG) noexcept {
  if (milliseconds != INFINITE)
    std::abort();
  ::pthread_mutex_lock(&variable->mutex);
  ReleaseSRWLockExclusive(lock);
  ::pthread_cond_wait(&variable->condition, &variable->mutex);
  ::pthread_mutex_unlock(&variable->mutex);
  AcquireSRWLockExclusive(lock);
}

inline void WakeConditionVariable(CONDITION_VARIABLE* variable) noexcept {
  ::pthread_mutex_lock(&variable->mutex);
  ++variable->wakes;
  ::pthread_cond_signal(&variable->condition);
  ::pthread_mutex_unlock(&variable->mutex);
}

inline void* LocalFree(void*) noexcept {
  return nullptr;
}

inline BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT, wchar_t*, DWORD*) {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

inline int GetLocaleInfoEx(const wchar_t*, DWORD, wchar_t* text, int) {
  text[0] = L',';
  text[1] = L'\0';
  return 2;
}
