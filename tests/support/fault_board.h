// Shared between a program built with the fault seam and the test that makes its calls fail.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace system_test {

// The Windows functions that can be made to fail, then operator new. CloseHandle can only block.
inline constexpr const char* kFaultPoints[] = {
    // When they fail, these return an invalid handle,
    "CreateNamedPipeW", "CreateFileW", "SetupDiGetClassDevsExW", "SetupDiOpenDevRegKey",
    // this one an error code,
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

// Lies in a named section. The program writes `live_blocks`, both sides write `countdown` and
// `failures`, and the test writes the rest.
struct FaultBoard {
  std::atomic<int> point;                 // index of the function whose calls count, or kNoFault
  std::atomic<int> countdown;             // the call that brings it to 0 fails
  std::atomic<int> failures;              // calls that have been made to fail
  std::atomic<bool> blocks;               // the call does not fail but blocks until `point` changes
  std::atomic<std::int64_t> live_blocks;  // allocations that the program has not freed yet
};

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "shared between processes");

inline std::wstring FaultBoardName(std::uint32_t process_id) {
  return L"Local\\tarnwheel_fault_board_" + std::to_wstring(process_id);
}

}  // namespace system_test
