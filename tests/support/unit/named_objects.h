// For tests on Windows: unique object names, and an object's access list.
#pragma once

#include <atomic>
#include <string>

#include "platform/unique_resource.h"
#include "platform/win32.h"

// After win32.h.
#include <sddl.h>

namespace testing_support {

inline std::wstring unique_name() {
  static std::atomic<unsigned> serial = 0;
  return L"unit_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++serial);
}

// A kernel object's access list in SDDL; "" if it cannot be read.
inline std::wstring access_to(HANDLE object) {
  BYTE descriptor[1024] = {};
  DWORD size = sizeof(descriptor);
  ::GetKernelObjectSecurity(object, DACL_SECURITY_INFORMATION, descriptor, size, &size);
  wchar_t* text = nullptr;
  ::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
  const Tamrin::unique_local_memory owner(text);
  return text == nullptr ? L"" : text;
}

}  // namespace testing_support
