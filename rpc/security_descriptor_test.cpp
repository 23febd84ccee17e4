#include "rpc/security_descriptor.h"

#include "platform/unique_resource.h"
#include "tests/support/unit/testing.h"

// After win32.h.
#include <sddl.h>

namespace tether {
namespace {

TEST(SecurityDescriptor, KeepsWhatItWasMadeFromEvenAfterAMove) {
  std::pair<security_descriptor, std::wstring> rows[] = {
      {security_descriptor::from_sddl(L"O:BAG:SYD:P(D;;GA;;;AN)(A;;GA;;;WD)"),
       L"O:BAG:SYD:P(D;;GA;;;AN)(A;;GA;;;WD)"},
      {security_descriptor::everyone(GENERIC_WRITE), L"D:(A;;GW;;;WD)"}};
  EXPECT_THROW(static_cast<void>(security_descriptor::from_sddl(L"D:(A;;GA;;;NOBODY)")),
               ostra::hresult_error);
  for (auto& [made, expected] : rows) {
    const security_descriptor descriptor = std::move(made);
    const SECURITY_ATTRIBUTES attributes = descriptor.attributes();
    EXPECT_FALSE(attributes.bInheritHandle);
    wchar_t* text = nullptr;
    ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        attributes.lpSecurityDescriptor, SDDL_REVISION_1,
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text,
        nullptr));
    const Tamrin::unique_local_memory owner(text);
    EXPECT_TRUE(text == expected);
  }
}

}  // namespace
}  // namespace tether
