// The types, constants and small functions of the stand-in for Windows.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

static_assert(sizeof(wchar_t) == 2, "compile with -fshort-wchar: wide text is UTF-16");

#define CALLBACK
#define TRUE 1
#define FAILED(code) ((code) < 0)
#define INVALID_HANDLE_VALUE reinterpret_cast<HANDLE>(std::intptr_t{-1})

using BOOL = int;
using BYTE = unsigned char;
using LONG = std::int32_t;
using HRESULT = std::int32_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using ULONG_PTR = std::uintptr_t;
using HANDLE = void*;
using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;
inline constexpr std::size_t SECURITY_MAX_SID_SIZE = 68;

inline constexpr DWORD ERROR_SUCCESS = 0, ERROR_HANDLE_EOF = 38, ERROR_BROKEN_PIPE = 109,
                       ERROR_MORE_DATA = 234, ERROR_OPERATION_ABORTED = 995, ERROR_IO_PENDING = 997,
                       ERROR_CANCELLED = 1223, ERROR_TIMEOUT = 1460;
inline constexpr DWORD WAIT_OBJECT_0 = 0, INFINITE = 0xFFFFFFFF;
inline constexpr HRESULT S_OK = 0, E_NOTIMPL = HRESULT(0x80004001), E_FAIL = HRESULT(0x80004005),
                         E_UNEXPECTED = HRESULT(0x8000FFFF), E_OUTOFMEMORY = HRESULT(0x8007000E);

// The C library's locks; a shared lock is exclusive. Their initial value is all that they need, and
// none is ever destroyed.
using SRWLOCK = pthread_mutex_t;
inline constexpr SRWLOCK SRWLOCK_INIT = PTHREAD_MUTEX_INITIALIZER;
inline constexpr auto AcquireSRWLockExclusive = &::pthread_mutex_lock;
inline constexpr auto ReleaseSRWLockExclusive = &::pthread_mutex_unlock;
inline constexpr auto AcquireSRWLockShared = &::pthread_mutex_lock;
inline constexpr auto ReleaseSRWLockShared = &::pthread_mutex_unlock;

struct CONDITION_VARIABLE {
  pthread_cond_t condition;
  unsigned wakes;  // written by each wake, so that the sanitizers see one that comes too late
};
inline constexpr CONDITION_VARIABLE CONDITION_VARIABLE_INIT = {PTHREAD_COND_INITIALIZER, 0};

// Nothing built here limits its wait, so the limit is ignored.
inline void SleepConditionVariableSRW(CONDITION_VARIABLE* variable, SRWLOCK* lock, DWORD, ULONG) {
  ::pthread_cond_wait(&variable->condition, lock);
}
inline void WakeConditionVariable(CONDITION_VARIABLE* variable) noexcept {
  ++variable->wakes;
  ::pthread_cond_signal(&variable->condition);
}

struct FILETIME {
  DWORD dwLowDateTime, dwHighDateTime;
};
struct OVERLAPPED {
  ULONG_PTR Internal, InternalHigh;
  DWORD Offset, OffsetHigh;
};
inline constexpr BYTE FILE_SKIP_COMPLETION_PORT_ON_SUCCESS = 1;

inline constexpr DWORD LOCALE_STHOUSAND = 15;
inline constexpr const wchar_t* LOCALE_NAME_USER_DEFAULT = nullptr;
inline int GetLocaleInfoEx(const wchar_t*, DWORD, wchar_t* text, int) {
  text[0] = L',';
  return 2;
}

// The callers of these are built here but never run: a call of a function without a definition ends
// the program.
enum COMPUTER_NAME_FORMAT { ComputerNameDnsHostname };
[[gnu::weak]] DWORD GetLastError() noexcept;
[[gnu::weak]] BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT, wchar_t* name, DWORD* size);
[[gnu::weak]] BOOL ReadFile(HANDLE, void* buffer, DWORD size, DWORD* moved, OVERLAPPED*);
[[gnu::weak]] BOOL WriteFile(HANDLE, const void* data, DWORD size, DWORD* moved, OVERLAPPED*);
[[gnu::weak]] BOOL CloseHandle(HANDLE) noexcept;
[[gnu::weak]] void* LocalFree(void*) noexcept;
