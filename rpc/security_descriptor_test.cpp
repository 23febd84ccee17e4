#include "rpc/security_descriptor.h"

#include <gtest/gtest.h>

#include "async/errors.h"
#include "platform/unique_resource.h"

// After win32.h.
#include <aclapi.h>
#include <sddl.h>

namespace tether {
namespace {

constexpr SECURITY_INFORMATION kAllParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

std::wstring to_sddl(PSECURITY_DESCRIPTOR descriptor, SECURITY_INFORMATION parts = kAllParts) {
  wchar_t* text = nullptr;
  EXPECT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                     parts, &text, nullptr));
  const Tamrin::unique_local_memory owner(text);
  return text == nullptr ? L"" : text;
}

TEST(SecurityDescriptor, KeepsWhatTheSddlSays) {
  const wchar_t* const rows[] = {L"D:(A;;0xc0100004;;;SU)(A;;0xc0100000;;;WD)", L"D:",
                                 L"O:BAG:SYD:P(D;;GA;;;AN)(A;;GA;;;WD)"};
  for (const wchar_t* sddl : rows) {
    PSECURITY_DESCRIPTOR expected = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                       &expected, nullptr));
    const Tamrin::unique_local_memory owner(expected);
    const security_descriptor descriptor = security_descriptor::from_sddl(sddl);
    const SECURITY_ATTRIBUTES attributes = descriptor.attributes();
    EXPECT_TRUE(::IsValidSecurityDescriptor(attributes.lpSecurityDescriptor));
    EXPECT_EQ(to_sddl(attributes.lpSecurityDescriptor), to_sddl(expected));
  }
}

TEST(SecurityDescriptor, BadSddlThrowsTheConversionsError) {
  for (const wchar_t* sddl : {L"D:(A;;", L"D:(A;;GA;;;NOBODY)", L"nonsense"}) {
    PSECURITY_DESCRIPTOR converted = nullptr;
    ASSERT_FALSE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                        &converted, nullptr));
    const HRESULT expected = ostra::details::last_hresult();
    HRESULT code = S_OK;
    try {
      static_cast<void>(security_descriptor::from_sddl(sddl));
    } catch (const ostra::hresult_error& error) {
      code = error.code();
    }
    EXPECT_EQ(code, expected);
    EXPECT_NE(code, S_OK);
  }
}

TEST(SecurityDescriptor, EveryoneIsGrantedTheMaskAndNobodyElseAnything) {
  for (const DWORD access : {DWORD{0xC0000000}, DWORD{EVENT_MODIFY_STATE}}) {
    const security_descriptor descriptor = security_descriptor::everyone(access);
    ACL* dacl = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    ASSERT_TRUE(::GetSecurityDescriptorDacl(descriptor.attributes().lpSecurityDescriptor, &present,
                                            &dacl, &defaulted));
    ASSERT_TRUE(present && dacl != nullptr && ::IsValidAcl(dacl) && dacl->AceCount == 1);
    void* entry = nullptr;
    ASSERT_TRUE(::GetAce(dacl, 0, &entry));
    auto* ace = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    EXPECT_EQ(ace->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(ace->Header.AceFlags, 0);
    EXPECT_EQ(ace->Mask, access);
    EXPECT_TRUE(::IsWellKnownSid(&ace->SidStart, WinWorldSid));
  }
}

TEST(SecurityDescriptor, GuardsObjectsMadeWithItEvenAfterAMove) {
  security_descriptor made = security_descriptor::everyone(EVENT_MODIFY_STATE);
  const security_descriptor descriptor = std::move(made);
  SECURITY_ATTRIBUTES attributes = descriptor.attributes();
  EXPECT_EQ(attributes.nLength, 24u);
  EXPECT_FALSE(attributes.bInheritHandle);
  const std::wstring name = L"security_descriptor_test " + std::to_wstring(::GetCurrentProcessId());
  const Tamrin::unique_handle event(::CreateEventW(&attributes, TRUE, FALSE, name.c_str()));
  ASSERT_TRUE(event);
  const Tamrin::unique_handle granted(::OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
  EXPECT_TRUE(granted);
  const Tamrin::unique_handle refused(::OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str()));
  EXPECT_FALSE(refused);
  EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

}  // namespace
}  // namespace tether
