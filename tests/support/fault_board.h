// What a program built with the fault seam shares with the test that makes its calls fail.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace system_test {

// The functions of Windows that can fail, the last by blocking only; and behind them operator new.
inline constexpr const char* kFaultPoints[] = {
    // These give an invalid handle then,
    "CreateNamedPipeW", "CreateFileW", "SetupDiGetClassDevsExW", "SetupDiOpenDevRegKey",
    // this one an error,
    "RegQueryValueExW",
    // and the others zero.
    "ConnectNamedPipe", "SetFileCompletionNotificationModes", "ReadFile", "WriteFile",
    "DeviceIoControl", "CancelIoEx", "CreateThreadpoolIo", "TrySubmitThreadpoolCallback",
    "ImpersonateNamedPipeClient", "OpenThreadToken", "GetTokenInformation", "CopySid",
    "LookupAccountSidW", "SetupDiEnumDeviceInfo", "SetupDiGetDeviceRegistryPropertyW",
    "CloseHandle", "operator new"};
constexpr int kHandleFunctions = 4;
constexpr int kOperatorNew = std::size(kFaultPoints) - 1;
constexpr int kCloseHandle = kOperatorNew - 1;
constexpr int kNoFault = -1;

// Lies in a named section. Each field is written by one side and read by the other, `countdown` by
// both.
struct FaultBoard {
  std::atomic<int> point;                 // the one whose calls are counted, or kNoFault
  std::atomic<int> countdown;             // the call that brings it to 0 fails
  std::atomic<int> failures;              // calls that have been made to fail
  std::atomic<bool> blocks;               // they do not fail, but go on when the point changes
  std::atomic<std::int64_t> live_blocks;  // what the program has allocated and not freed yet
};

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "shared between processes");

inline std::wstring FaultBoardName(std::uint32_t process_id) {
  return L"Local\\tarnwheel_fault_board_" + std::to_wstring(process_id);
}

}  // namespace system_test
