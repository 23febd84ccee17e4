// Locks, condition variables and what else a thread has of its own.
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "windows.h"

namespace {

thread_local DWORD last_error = ERROR_SUCCESS;

timespec time_in(DWORD milliseconds) {
  timespec time = {};
  ::clock_gettime(CLOCK_REALTIME, &time);
  const auto nanoseconds = time.tv_nsec + (milliseconds % 1000) * 1'000'000L;
  time.tv_sec += milliseconds / 1000 + nanoseconds / 1'000'000'000L;
  time.tv_nsec = nanoseconds % 1'000'000'000L;
  return time;
}

}  // namespace

DWORD GetLastError() noexcept {
  return last_error;
}

void SetLastError(DWORD error) noexcept {
  last_error = error;
}

void AcquireSRWLockExclusive(SRWLOCK* lock) noexcept {
  ::pthread_rwlock_wrlock(&lock->lock);
}

void ReleaseSRWLockExclusive(SRWLOCK* lock) noexcept {
  ::pthread_rwlock_unlock(&lock->lock);
}

void AcquireSRWLockShared(SRWLOCK* lock) noexcept {
  ::pthread_rwlock_rdlock(&lock->lock);
}

void ReleaseSRWLockShared(SRWLOCK* lock) noexcept {
  ::pthread_rwlock_unlock(&lock->lock);
}

// The variable's own mutex is taken before the lock is given up, so a wake that follows is not
// lost.
BOOL SleepConditionVariableSRW(CONDITION_VARIABLE* variable, SRWLOCK* lock, DWORD milliseconds,
                               ULONG) noexcept {
  ::pthread_mutex_lock(&variable->mutex);
  ReleaseSRWLockExclusive(lock);
  int result = 0;
  if (milliseconds == INFINITE) {
    ::pthread_cond_wait(&variable->condition, &variable->mutex);
  } else {
    const timespec end = time_in(milliseconds);
    result = ::pthread_cond_timedwait(&variable->condition, &variable->mutex, &end);
  }
  ::pthread_mutex_unlock(&variable->mutex);
  AcquireSRWLockExclusive(lock);
  if (result != 0)
    SetLastError(ERROR_TIMEOUT);
  return result == 0;
}

void WakeConditionVariable(CONDITION_VARIABLE* variable) noexcept {
  ::pthread_mutex_lock(&variable->mutex);
  ++variable->wakes;
  ::pthread_cond_signal(&variable->condition);
  ::pthread_mutex_unlock(&variable->mutex);
}

void Sleep(DWORD milliseconds) noexcept {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

DWORD GetCurrentThreadId() noexcept {
  return static_cast<DWORD>(::gettid());
}

DWORD GetCurrentProcessId() noexcept {
  return static_cast<DWORD>(::getpid());
}
