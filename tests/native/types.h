// The types and constants of the stand-in for Windows.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

static_assert(sizeof(wchar_t) == 2, "compile with -fshort-wchar: wide text is UTF-16");

#define CALLBACK
#define TRUE 1
#define FALSE 0
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

inline constexpr DWORD ERROR_SUCCESS = 0, ERROR_ACCESS_DENIED = 5, ERROR_INVALID_HANDLE = 6,
                       ERROR_SHARING_VIOLATION = 32, ERROR_HANDLE_EOF = 38, ERROR_BROKEN_PIPE = 109,
                       ERROR_CALL_NOT_IMPLEMENTED = 120, ERROR_MORE_DATA = 234,
                       ERROR_OPERATION_ABORTED = 995, ERROR_IO_PENDING = 997,
                       ERROR_NOT_FOUND = 1168, ERROR_CANCELLED = 1223, ERROR_TIMEOUT = 1460;
inline constexpr DWORD WAIT_OBJECT_0 = 0, WAIT_TIMEOUT = 258, INFINITE = 0xFFFFFFFF;
inline constexpr HRESULT S_OK = 0, S_FALSE = 1, E_NOTIMPL = HRESULT(0x80004001),
                         E_FAIL = HRESULT(0x80004005), E_UNEXPECTED = HRESULT(0x8000FFFF),
                         E_OUTOFMEMORY = HRESULT(0x8007000E), E_INVALIDARG = HRESULT(0x80070057);
constexpr bool FAILED(HRESULT code) noexcept {
  return code < 0;
}

// Locks are those of the C library. The initial value is all that they need; none is ever destroyed.
using SRWLOCK = pthread_rwlock_t;
inline constexpr SRWLOCK SRWLOCK_INIT = PTHREAD_RWLOCK_INITIALIZER;
inline constexpr auto AcquireSRWLockExclusive = &::pthread_rwlock_wrlock;
inline constexpr auto ReleaseSRWLockExclusive = &::pthread_rwlock_unlock;
inline constexpr auto AcquireSRWLockShared = &::pthread_rwlock_rdlock;
inline constexpr auto ReleaseSRWLockShared = &::pthread_rwlock_unlock;

struct CONDITION_VARIABLE {
  pthread_mutex_t mutex;
  pthread_cond_t condition;
  unsigned wakes;  // written by each wake, which shows the sanitizers one that comes too late
};
inline constexpr CONDITION_VARIABLE CONDITION_VARIABLE_INIT = {PTHREAD_MUTEX_INITIALIZER,
                                                               PTHREAD_COND_INITIALIZER, 0};

// Relative times are negative counts of 100 nanoseconds.
struct FILETIME {
  DWORD dwLowDateTime, dwHighDateTime;
};
using PTP_CALLBACK_INSTANCE = struct TP_CALLBACK_INSTANCE*;
using PTP_WORK = struct TP_OBJECT*;
using PTP_TIMER = TP_OBJECT*;
using PTP_WAIT = TP_OBJECT*;
using PTP_IO = TP_OBJECT*;
using TP_WAIT_RESULT = DWORD;

struct OVERLAPPED {
  ULONG_PTR Internal, InternalHigh;
  DWORD Offset, OffsetHigh;
};
inline constexpr BYTE FILE_SKIP_COMPLETION_PORT_ON_SUCCESS = 1;
enum COMPUTER_NAME_FORMAT { ComputerNameDnsHostname };
inline constexpr const wchar_t* LOCALE_NAME_USER_DEFAULT = nullptr;
inline constexpr DWORD LOCALE_STHOUSAND = 15;
