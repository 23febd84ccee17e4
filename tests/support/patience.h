// How long a test waits for what must happen; nothing here waits for a fixed time.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/win32.h"

namespace system_test {

// Milliseconds; far beyond what a working server takes.
constexpr DWORD kPatience = 20'000;

// Asks `condition` again and again until it holds; false when it does not within `milliseconds`.
template <class Condition>
bool Eventually(Condition condition, DWORD milliseconds = kPatience) {
  const ULONGLONG deadline = ::GetTickCount64() + milliseconds;
  while (!condition()) {
    if (::GetTickCount64() > deadline)
      return false;
    ::Sleep(2);
  }
  return true;
}

// Ends the test when the system refuses what the test itself needs.
inline void Require(bool succeeded, const char* what) {
  if (!succeeded)
    throw std::runtime_error(what + (": " + std::to_string(::GetLastError())));
}

}  // namespace system_test
