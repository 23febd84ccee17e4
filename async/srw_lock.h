// Windows' slim reader/writer lock and its condition variable, usable with std::lock_guard,
// std::unique_lock and std::shared_lock. Neither allocates, fails or needs destruction.
#pragma once

#include "platform/win32.h"

namespace ostra {

class srw_lock {
 public:
  constexpr srw_lock() noexcept = default;
  srw_lock(const srw_lock&) = delete;
  srw_lock& operator=(const srw_lock&) = delete;

  void lock() noexcept { ::AcquireSRWLockExclusive(&lock_); }
  void unlock() noexcept { ::ReleaseSRWLockExclusive(&lock_); }
  void lock_shared() noexcept { ::AcquireSRWLockShared(&lock_); }
  void unlock_shared() noexcept { ::ReleaseSRWLockShared(&lock_); }

 private:
  friend class condition_variable;
  SRWLOCK lock_ = SRWLOCK_INIT;
};

class condition_variable {
 public:
  condition_variable() noexcept = default;
  condition_variable(const condition_variable&) = delete;
  condition_variable& operator=(const condition_variable&) = delete;

  // The caller holds `lock` exclusively. Spurious wake-ups are possible.
  void wait(srw_lock& lock) noexcept {
    ::SleepConditionVariableSRW(&variable_, &lock.lock_, INFINITE, 0);
  }

  // Like wait(), but returns after `milliseconds` at the latest.
  void wait_for(srw_lock& lock, DWORD milliseconds) noexcept {
    ::SleepConditionVariableSRW(&variable_, &lock.lock_, milliseconds, 0);
  }

  // Must be called with the lock held if the waiter may destroy this object once it has seen its
  // condition: once the lock is released, the object may be gone.
  void notify_one() noexcept { ::WakeConditionVariable(&variable_); }

 private:
  CONDITION_VARIABLE variable_ = CONDITION_VARIABLE_INIT;
};

}  // namespace ostra
