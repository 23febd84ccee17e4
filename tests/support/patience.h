// Waiting in tests: for a condition, up to a deadline, and never for a fixed time.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/win32.h"

namespace system_test {

// In milliseconds; far longer than a working server takes.
constexpr DWORD kPatience = 20'000;

// Polls `condition` until it holds; false if it does not within `milliseconds`.
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

// Fails the test, with GetLastError(), if the system refuses something that the test itself needs.
inline void Require(bool succeeded, const char* what) {
  if (!succeeded)
    throw std::runtime_error(what + (": " + std::to_string(::GetLastError())));
}

}  // namespace system_test
