// A stand-in for the part of Windows that the portable core uses, so that the core can be built on
// Linux, where the sanitizers are. Only what the core names is here, with the meaning that
// Microsoft documents. Found as <windows.h> by platform/win32.h.
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
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using HRESULT = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using HANDLE = void*;
using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;

// What was asked for failed; the last error is the thread's own.
DWORD GetLastError() noexcept;
void SetLastError(DWORD error) noexcept;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_BAD_COMMAND = 22;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_SEM_TIMEOUT = 121;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_PIPE_BUSY = 231;
inline constexpr DWORD ERROR_NO_DATA = 232;
inline constexpr DWORD ERROR_PIPE_NOT_CONNECTED = 233;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_PIPE_CONNECTED = 535;
inline constexpr DWORD ERROR_PIPE_LISTENING = 536;
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_NOT_FOUND = 1168;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr auto E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr auto E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr auto E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr auto E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr auto E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr bool FAILED(HRESULT code) noexcept {
  return code < 0;
}

// Locks. The initial value is all that either needs; neither is ever destroyed.
struct SRWLOCK {
  pthread_rwlock_t lock;
};
inline constexpr SRWLOCK SRWLOCK_INIT = {PTHREAD_RWLOCK_INITIALIZER};
void AcquireSRWLockExclusive(SRWLOCK* lock) noexcept;
void ReleaseSRWLockExclusive(SRWLOCK* lock) noexcept;
void AcquireSRWLockShared(SRWLOCK* lock) noexcept;
void ReleaseSRWLockShared(SRWLOCK* lock) noexcept;

struct CONDITION_VARIABLE {
  pthread_mutex_t mutex;
  pthread_cond_t condition;
  unsigned wakes;  // written by each wake, which shows the sanitizers one that comes too late
};
inline constexpr CONDITION_VARIABLE CONDITION_VARIABLE_INIT = {PTHREAD_MUTEX_INITIALIZER,
                                                               PTHREAD_COND_INITIALIZER, 0};
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
BOOL SleepConditionVariableSRW(CONDITION_VARIABLE* variable, SRWLOCK* lock, DWORD milliseconds,
                               ULONG flags) noexcept;
void WakeConditionVariable(CONDITION_VARIABLE* variable) noexcept;

// Threads, processes, handles.
void Sleep(DWORD milliseconds) noexcept;
DWORD GetCurrentThreadId() noexcept;
DWORD GetCurrentProcessId() noexcept;
HANDLE GetCurrentThread() noexcept;
BOOL CloseHandle(HANDLE handle) noexcept;
void* LocalFree(void* memory) noexcept;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  PSECURITY_DESCRIPTOR lpSecurityDescriptor;
  BOOL bInheritHandle;
};
HANDLE CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manual_reset, BOOL initially_set,
                    const wchar_t* name);
BOOL SetEvent(HANDLE event) noexcept;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// The thread pool. Relative times are negative counts of 100 nanoseconds.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
using PTP_CALLBACK_INSTANCE = struct TP_CALLBACK_INSTANCE*;
using PTP_WORK = struct TP_WORK*;
using PTP_TIMER = struct TP_TIMER*;
using PTP_WAIT = struct TP_WAIT*;
using PTP_IO = struct TP_IO*;
using TP_WAIT_RESULT = DWORD;
using simple_callback = void(PTP_CALLBACK_INSTANCE, void* context);
using work_callback = void(PTP_CALLBACK_INSTANCE, void* context, PTP_WORK);
using timer_callback = void(PTP_CALLBACK_INSTANCE, void* context, PTP_TIMER);
using wait_callback = void(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT, TP_WAIT_RESULT);
using io_callback = void(PTP_CALLBACK_INSTANCE, void* context, void* overlapped, ULONG result,
                         ULONG_PTR bytes, PTP_IO);

BOOL TrySubmitThreadpoolCallback(simple_callback* callback, void* context, void* environment);
void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance);
PTP_WORK CreateThreadpoolWork(work_callback* callback, void* context, void* environment);
void SubmitThreadpoolWork(PTP_WORK work);
PTP_TIMER CreateThreadpoolTimer(timer_callback* callback, void* context, void* environment);
void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD period, DWORD window);
void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancel_pending);
void CloseThreadpoolTimer(PTP_TIMER timer);
PTP_WAIT CreateThreadpoolWait(wait_callback* callback, void* context, void* environment);
void SetThreadpoolWait(PTP_WAIT wait, HANDLE handle, const FILETIME* timeout);
void CloseThreadpoolWait(PTP_WAIT wait);

// Overlapped I/O.
struct OVERLAPPED {
  ULONG_PTR Internal;
  ULONG_PTR InternalHigh;
  DWORD Offset;
  DWORD OffsetHigh;
  HANDLE hEvent;
};
inline constexpr BYTE FILE_SKIP_COMPLETION_PORT_ON_SUCCESS = 1;
BOOL SetFileCompletionNotificationModes(HANDLE file, BYTE modes);
PTP_IO CreateThreadpoolIo(HANDLE file, io_callback* callback, void* context, void* environment);
void StartThreadpoolIo(PTP_IO io);
void CancelThreadpoolIo(PTP_IO io);
void CloseThreadpoolIo(PTP_IO io);
BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* moved, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, const void* data, DWORD size, DWORD* moved, OVERLAPPED* overlapped);
BOOL CancelIoEx(HANDLE file, OVERLAPPED* overlapped);
BOOL FlushFileBuffers(HANDLE file);

// Files and pipes. A file is temporary and has no name.
inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;
inline constexpr DWORD FILE_FLAG_FIRST_PIPE_INSTANCE = 0x00080000;
inline constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
inline constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
inline constexpr DWORD PIPE_TYPE_BYTE = 0;
inline constexpr DWORD PIPE_READMODE_BYTE = 0;
inline constexpr DWORD PIPE_WAIT = 0;
inline constexpr DWORD PIPE_UNLIMITED_INSTANCES = 255;
DWORD GetTempPathW(DWORD size, wchar_t* path);
DWORD GetTempFileNameW(const wchar_t* folder, const wchar_t* prefix, DWORD number, wchar_t* path);
HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE model);
HANDLE CreateNamedPipeW(const wchar_t* name, DWORD open_mode, DWORD pipe_mode, DWORD instances,
                        DWORD output_size, DWORD input_size, DWORD timeout,
                        SECURITY_ATTRIBUTES* security);
BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* overlapped);
BOOL DisconnectNamedPipe(HANDLE pipe);
BOOL WaitNamedPipeW(const wchar_t* name, DWORD milliseconds);
BOOL SetNamedPipeHandleState(HANDLE pipe, DWORD* mode, DWORD* count, DWORD* timeout);

// Identities: nobody can be impersonated here, and no identifier is valid.
inline constexpr DWORD TOKEN_QUERY = 8;
inline constexpr std::size_t SECURITY_MAX_SID_SIZE = 68;
enum TOKEN_INFORMATION_CLASS { TokenUser = 1 };
enum SID_NAME_USE { SidTypeUnknown = 8 };
struct TOKEN_USER {
  struct {
    PSID Sid;
    DWORD Attributes;
  } User;
};
BOOL ImpersonateNamedPipeClient(HANDLE pipe);
BOOL RevertToSelf();
BOOL OpenThreadToken(HANDLE thread, DWORD access, BOOL open_as_self, HANDLE* token);
BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS which, void* data, DWORD size,
                         DWORD* needed);
BOOL LookupAccountSidW(const wchar_t* system, PSID sid, wchar_t* account, DWORD* account_size,
                       wchar_t* domain, DWORD* domain_size, SID_NAME_USE* use);
BOOL IsValidSid(PSID sid);
DWORD GetLengthSid(PSID sid);
BOOL CopySid(DWORD size, PSID to, PSID from);

// The machine.
enum COMPUTER_NAME_FORMAT { ComputerNameDnsHostname = 1 };
BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, wchar_t* name, DWORD* size);
inline constexpr const wchar_t* LOCALE_NAME_USER_DEFAULT = nullptr;
inline constexpr DWORD LOCALE_STHOUSAND = 15;
int GetLocaleInfoEx(const wchar_t* locale, DWORD type, wchar_t* text, int size);

// Types of registry values.
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_MULTI_SZ = 7;
