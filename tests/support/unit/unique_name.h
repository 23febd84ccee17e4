// For tests on Windows: names of objects that no other test uses.
#pragma once

#include <atomic>
#include <string>

#include "platform/win32.h"

namespace testing_support {

inline std::wstring unique_name() {
  static std::atomic<unsigned> serial = 0;
  return L"rpc_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" + std::to_wstring(++serial);
}

}  // namespace testing_support
