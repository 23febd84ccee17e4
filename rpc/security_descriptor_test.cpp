#include "rpc/security_descriptor.h"

#include "tests/support/unit/testing.h"
#include "tests/support/unit/unique_name.h"

// After win32.h.
#include <sddl.h>

namespace tether {
namespace {

TEST(SecurityDescriptor, BadSddlThrowsTheConversionsError) {
  EXPECT_EQ(testing_support::code_of([] {
              return security_descriptor::from_sddl(L"D:(A;;GA;;;NOBODY)").attributes().nLength;
            }),
            static_cast<HRESULT>(0x80070539));  // ERROR_INVALID_SID
}

TEST(SecurityDescriptor, KeepsWhatItWasMadeFromEvenAfterAMove) {
  std::pair<security_descriptor, std::wstring> rows[] = {
      {security_descriptor::from_sddl(L"O:BAG:SYD:P(D;;GA;;;AN)(A;;GA;;;WD)"),
       L"O:BAG:SYD:P(D;;GA;;;AN)(A;;GA;;;WD)"},
      {security_descriptor::everyone(GENERIC_WRITE), L"D:(A;;GW;;;WD)"}};
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

TEST(SecurityDescriptor, GuardsWhatIsMadeWithIt) {
  const auto descriptor = security_descriptor::everyone(EVENT_MODIFY_STATE);
  SECURITY_ATTRIBUTES attributes = descriptor.attributes();
  const auto name = testing_support::unique_name();
  const Tamrin::unique_handle event(::CreateEventW(&attributes, TRUE, FALSE, name.c_str()));
  const Tamrin::unique_handle granted(::OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
  EXPECT_TRUE(granted);
  const Tamrin::unique_handle refused(::OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str()));
  EXPECT_FALSE(refused);
}

}  // namespace
}  // namespace tether
