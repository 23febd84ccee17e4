// Shared between the test and the stand-in for dnsapi.dll: the simulated network and its faults.
#pragma once

#include <atomic>

#include "platform/win32.h"

namespace system_test {

inline constexpr wchar_t kDnsBoardName[] = L"Local\\tarnwheel_dns_board";

// Lies in a named section. The test writes the first three members, `others` only before it starts
// programs.
struct DnsBoard {
  wchar_t others[8][64];       // instances that other machines announce
  std::atomic<DWORD> refusal;  // returned at once instead of starting anything; 0: none
  std::atomic<DWORD> delay;    // milliseconds before each callback that completes a request
  wchar_t instance[512];       // registered by a program: "NAME HOST PORT KEY=VALUE..."
  std::atomic<bool> is_announced;
  std::atomic<int> unfreed;  // objects handed to callbacks and not yet freed
};

}  // namespace system_test
