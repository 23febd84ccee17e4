#include "rpc/client_identity.h"

#include <gtest/gtest.h>

#include "async/errors.h"

namespace tether {
namespace {

Tamrin::unique_handle process_token() {
  HANDLE token = nullptr;
  EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
  return Tamrin::unique_handle(token);
}

bool thread_impersonates() {
  HANDLE token = nullptr;
  const BOOL opened = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
  EXPECT_TRUE(opened || ::GetLastError() == ERROR_NO_TOKEN);
  const Tamrin::unique_handle owner(token);
  return opened;
}

bool is_open(HANDLE handle) {
  DWORD flags = 0;
  return ::GetHandleInformation(handle, &flags);
}

// The account that this process runs as, asked for in another way.
std::wstring own_user_name() {
  std::wstring name(256, L'\0');
  auto size = static_cast<DWORD>(name.size());
  EXPECT_TRUE(::GetUserNameW(name.data(), &size));
  return name.c_str();
}

template <class Operation>
HRESULT code_of(Operation operation) {
  try {
    operation();
  } catch (const ostra::hresult_error& error) {
    return error.code();
  }
  return S_OK;
}

// Both ends of a pipe of this process; the client has written one byte, which has been read.
class ConnectedPipe {
 public:
  ConnectedPipe() {
    const std::wstring name =
        L"\\\\.\\pipe\\identity_test " + std::to_wstring(::GetCurrentProcessId());
    server_.reset(::CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 64, 64, 0,
                                     nullptr));
    client_.reset(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, SECURITY_SQOS_PRESENT | SECURITY_IMPERSONATION,
                                nullptr));
    char byte = 'x';
    DWORD count = 0;
    EXPECT_TRUE(::WriteFile(client_.get(), &byte, 1, &count, nullptr));
    EXPECT_TRUE(::ReadFile(server_.get(), &byte, 1, &count, nullptr));
  }

  HANDLE server() const { return server_.get(); }

 private:
  Tamrin::unique_file server_;
  Tamrin::unique_file client_;
};

TEST(ClientToken, NamesThePipeClientAndRevertsTheThread) {
  const ConnectedPipe pipe;
  const CToken token = open_client_token(pipe.server(), TOKEN_QUERY, false, false);
  EXPECT_FALSE(thread_impersonates());
  const std::optional<std::wstring> name = account_name(token);
  ASSERT_TRUE(name);
  EXPECT_EQ(name->substr(name->find(L'\\') + 1), own_user_name());
}

TEST(ClientToken, KeptImpersonationEndsWithTheLastOwner) {
  const ConnectedPipe pipe;
  CToken token = open_client_token(pipe.server(), TOKEN_QUERY, true, false);
  EXPECT_TRUE(thread_impersonates());
  CToken owner;
  owner = std::move(token);
  token = CToken();
  EXPECT_TRUE(thread_impersonates());
  owner = CToken();
  EXPECT_FALSE(thread_impersonates());
}

TEST(ClientToken, IsEmptyWithoutAClient) {
  EXPECT_FALSE(open_client_token(INVALID_HANDLE_VALUE, TOKEN_QUERY, false, false));
  EXPECT_FALSE(thread_impersonates());
  EXPECT_EQ(account_name(CToken()), std::nullopt);
}

TEST(ClientToken, ClosesTheHandleBeforeItTakesAnother) {
  CToken token;
  token.store(process_token());
  const HANDLE first = token.get();
  CToken other = std::move(token);
  EXPECT_FALSE(token);
  EXPECT_TRUE(is_open(first));
  other.store({});
  EXPECT_FALSE(is_open(first));
}

TEST(Sid, DisplayNameLeavesOutAnEmptyDomain) {
  // The last name is longer than the buffers of the first attempt.
  const std::pair<WELL_KNOWN_SID_TYPE, bool> rows[] = {
      {WinWorldSid, false},
      {WinLocalSystemSid, true},
      {WinBuiltinPreWindows2000CompatibleAccessSid, true}};
  for (const auto& [type, has_domain] : rows) {
    BYTE bytes[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(bytes);
    ASSERT_TRUE(::CreateWellKnownSid(type, nullptr, bytes, &size));
    CSid sid(bytes);
    EXPECT_TRUE(::EqualSid(sid.get(), bytes));
    sid.look_up();
    EXPECT_EQ(sid.domain().empty(), !has_domain);
    EXPECT_EQ(sid.display_name(),
              has_domain ? sid.domain() + L"\\" + sid.account() : sid.account());
    EXPECT_FALSE(sid.account().empty());
    EXPECT_EQ(sid.display_name().find(L'\0'), std::wstring::npos);
  }
}

TEST(Sid, OnlyValidOnesOfUpTo68BytesAreTaken) {
  struct {
    SID header;
    DWORD rest[15];
  } sid = {};
  sid.header.Revision = SID_REVISION;
  const std::pair<BYTE, HRESULT> rows[] = {
      {BYTE{15}, S_OK}, {BYTE{16}, E_INVALIDARG}, {BYTE{0xFF}, E_INVALIDARG}};
  for (const auto& [count, expected] : rows) {
    sid.header.SubAuthorityCount = count;
    EXPECT_EQ(code_of([&] { CSid copy(&sid); }), expected) << int{count};
  }
  sid.header = {2, 1, {}, {}};
  EXPECT_EQ(code_of([&] { CSid copy(&sid); }), E_INVALIDARG);
}

TEST(Sid, FailedLookUpsAndTokensThrowTheirError) {
  const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_NE(code_of([&] { static_cast<void>(CSid::user_of(event.get())); }), S_OK);
  SID unknown = {SID_REVISION, 1, {{0, 0, 0, 0, 0, 77}}, {4321}};
  CSid sid(&unknown);
  EXPECT_EQ(code_of([&] { sid.look_up(); }), static_cast<HRESULT>(0x80070534));
}

}  // namespace
}  // namespace tether
