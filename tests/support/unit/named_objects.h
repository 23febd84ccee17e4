// For tests on Windows: names of objects that no other test uses, and who may use an object.
#pragma once

#include <atomic>
#include <string>

#include "platform/unique_resource.h"
#include "platform/win32.h"

// After win32.h.
#include <aclapi.h>
#include <sddl.h>

namespace testing_support {

inline std::wstring unique_name() {
  static std::atomic<unsigned> serial = 0;
  return L"unit_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++serial);
}

// A kernel object's access list in SDDL, "" when it cannot be had.
inline std::wstring access_to(HANDLE object) {
  PSECURITY_DESCRIPTOR stored = nullptr;
  ::GetSecurityInfo(object, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                    nullptr, &stored);
  const Tamrin::unique_local_memory owner(stored);
  wchar_t* text = nullptr;
  ::ConvertSecurityDescriptorToStringSecurityDescriptorW(stored, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
  const Tamrin::unique_local_memory text_owner(text);
  return text == nullptr ? L"" : text;
}

}  // namespace testing_support
