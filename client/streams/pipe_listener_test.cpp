#include "client/streams/pipe_listener.h"

#include <gtest/gtest.h>

#include "platform/unique_resource.h"
#include "rpc/client_identity.h"

// After win32.h.
#include <aclapi.h>

namespace tarnwheel::client {
namespace {

bool Allows(ACL* dacl, DWORD index, PSID account) {
  void* ace = nullptr;
  EXPECT_TRUE(::GetAce(dacl, index, &ace));
  auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
  return allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
         ::EqualSid(&allowed->SidStart, account);
}

void ExpectForThisAccountAndTheSystemAlone(HANDLE pipe) {
  HANDLE token = nullptr;
  ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
  const Tamrin::unique_handle token_owner(token);
  auto user = tether::CSid::user_of(token);
  SID system = {SID_REVISION, 1, {SECURITY_NT_AUTHORITY}, {SECURITY_LOCAL_SYSTEM_RID}};

  ACL* dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetSecurityInfo(pipe, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &dacl, nullptr, &descriptor),
            DWORD{ERROR_SUCCESS});
  const Tamrin::unique_local_memory descriptor_owner(descriptor);
  ASSERT_NE(dacl, nullptr) << "everybody";
  ASSERT_EQ(dacl->AceCount, 2);
  EXPECT_TRUE(Allows(dacl, 0, &system));
  EXPECT_TRUE(Allows(dacl, 1, user.get()));
}

TEST(PipeListener, EveryInstanceIsForThisAccountAndTheSystemAlone) {
  const auto listener = listen_pipe(L"listener_" + std::to_wstring(::GetCurrentProcessId()));
  for (int instance = 0; instance < 2; ++instance) {
    const auto accepted = listener->accept();
    const Tamrin::unique_file pipe(::CreateFileW(listener->address().c_str(), GENERIC_READ, 0,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
    const auto stream = accepted.get();
    ExpectForThisAccountAndTheSystemAlone(pipe.get());
  }
}

}  // namespace
}  // namespace tarnwheel::client
