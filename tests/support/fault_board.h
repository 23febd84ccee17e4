// What a program built with the fault seam shares with the test that makes its calls fail.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace system_test {

// A function of Windows and what it returns when it fails. The last can be made to block only.
struct FaultPoint {
  const char* name;
  std::intptr_t failure;
};
constexpr std::intptr_t kInvalidHandle = -1;
constexpr std::intptr_t kNoSystemResources = 1450;
inline constexpr FaultPoint kFaultPoints[] = {{"CreateNamedPipeW", kInvalidHandle},
                                              {"ConnectNamedPipe", 0},
                                              {"CreateFileW", kInvalidHandle},
                                              {"SetFileCompletionNotificationModes", 0},
                                              {"ReadFile", 0},
                                              {"WriteFile", 0},
                                              {"DeviceIoControl", 0},
                                              {"CancelIoEx", 0},
                                              {"CreateThreadpoolIo", 0},
                                              {"TrySubmitThreadpoolCallback", 0},
                                              {"ImpersonateNamedPipeClient", 0},
                                              {"OpenThreadToken", 0},
                                              {"GetTokenInformation", 0},
                                              {"CopySid", 0},
                                              {"LookupAccountSidW", 0},
                                              {"SetupDiGetClassDevsExW", kInvalidHandle},
                                              {"SetupDiEnumDeviceInfo", 0},
                                              {"SetupDiOpenDevRegKey", kInvalidHandle},
                                              {"SetupDiGetDeviceRegistryPropertyW", 0},
                                              {"RegQueryValueExW", kNoSystemResources},
                                              {"CloseHandle", 0}};
constexpr int kImports = std::size(kFaultPoints);
constexpr int kCloseHandle = kImports - 1;
constexpr int kOperatorNew = kImports;  // a point besides those
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
