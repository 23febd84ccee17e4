// What the stand-in for dnsapi.dll shares with the test: the network, and what goes wrong on it.
#pragma once

#include <atomic>

#include "platform/win32.h"

namespace system_test {

inline constexpr wchar_t kDnsBoardName[] = L"Local\\tarnwheel_dns_board";

// Lies in a named section. The test sets the first part before it starts programs.
struct DnsBoard {
  wchar_t others[8][64];       // instances that other machines announce
  std::atomic<DWORD> refusal;  // returned at once instead of starting anything; 0: none
  std::atomic<DWORD> delay;    // milliseconds before each callback that completes a request
  wchar_t instance[512];       // what a program registers: "NAME HOST PORT KEY=VALUE..."
  std::atomic<bool> is_announced;
  std::atomic<int> unfreed;  // what callbacks have been given and have not freed yet
};

}  // namespace system_test
