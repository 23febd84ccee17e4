// The expectations of a check; one that is not met throws check_failure.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "format/format.h"
#include "platform/win32.h"

namespace tarnwheel::tools {

// Why a check failed.
struct check_failure {
  std::wstring reason;
};

inline void expect(bool holds, std::wstring_view what) {
  if (!holds)
    throw check_failure{std::wstring(what)};
}

inline void expect_number(std::uint32_t actual, std::uint32_t expected) {
  expect(actual == expected, tfmt::format(L"0x{0b16xp} instead of 0x{1b16xp}", actual, expected));
}

inline void expect_code(HRESULT actual, HRESULT expected) {
  expect_number(static_cast<std::uint32_t>(actual), static_cast<std::uint32_t>(expected));
}

// Polls `condition` until it holds; false when it does not within `limit`.
template <class Condition>
bool holds_within(Condition condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    ::Sleep(2);
  }
  return true;
}

}  // namespace tarnwheel::tools
