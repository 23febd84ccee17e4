#include "rpc/client_identity.h"

#include "rpc/pipe_transport.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/named_objects.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

bool ThreadImpersonates() {
  HANDLE token = nullptr;
  const BOOL opened = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
  const Tamrin::unique_handle owner(token);
  return opened;
}

TEST(ClientToken, NamesThePipesClientAndEndsTheImpersonation) {
  const auto server = PipeTransport::Create();
  EXPECT_FALSE(server->GetClientToken(TOKEN_QUERY, false, false));  // nobody is there
  const auto client = PipeTransport::Create();
  const auto name = testing_support::unique_name();
  ASSERT_EQ(server->Listen(name, nullptr), S_OK);
  ASSERT_EQ(client->Connect(L".", name, 50, 1), S_OK);
  client->WriteMessage(test::MakeMessage({})).get();
  static_cast<void>(server->ReadMessage().get());

  const CToken token = server->GetClientToken(TOKEN_QUERY, false, false);
  EXPECT_FALSE(ThreadImpersonates());
  wchar_t user[256] = L"";
  DWORD size = 256;
  EXPECT_TRUE(::GetUserNameW(user, &size));
  EXPECT_TRUE(account_name(token).value_or(L"").ends_with(L"\\" + std::wstring(user)));
  EXPECT_FALSE(account_name(CToken()));

  // One that is kept ends with its last owner.
  CToken owner = server->GetClientToken(TOKEN_QUERY, true, false);
  CToken last;
  last = std::move(owner);
  owner = CToken();
  EXPECT_TRUE(ThreadImpersonates());
  last = CToken();
  EXPECT_FALSE(ThreadImpersonates());
}

TEST(Sid, DisplayNameIsWholeAlsoBeyondTheUsualRoom) {
  BYTE bytes[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof(bytes);
  ::CreateWellKnownSid(WinBuiltinPreWindows2000CompatibleAccessSid, nullptr, bytes, &size);
  CSid sid(bytes);
  sid.look_up();
  EXPECT_EQ(sid.display_name(), L"BUILTIN\\Pre-Windows 2000 Compatible Access");
}

}  // namespace
}  // namespace tether
