#include "rpc/pipe_transport.h"

#include <algorithm>

#include "rpc/client_identity.h"
#include "rpc/mailslot.h"
#include "rpc/security_descriptor.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/named_objects.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using ostra::details::to_hresult;
using test::MakeMessage;
using test::Pattern;
using testing_support::outcome_of;
using testing_support::unique_name;

// A write of this size stays pending while the other end does not read.
constexpr std::size_t kMoreThanThePipeTakes = 16'000'000;

constexpr wchar_t kAccess[] = L"D:P(D;;FA;;;AN)(A;;FA;;;WD)";

bool ThreadImpersonates() {
  HANDLE token = nullptr;
  const BOOL opened = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
  const Tamrin::unique_handle owner(token);
  return opened;
}

// A server end, and a raw client end that knows nothing of messages.
class PipeEnds : public ::testing::Test {
 protected:
  void Renew() {
    server_ = PipeTransport::Create();
    const auto made = security_descriptor::from_sddl(kAccess);
    ASSERT_EQ(server_->Listen(name_, made.attributes().lpSecurityDescriptor), S_OK);
    raw_.reset(::CreateFileW((LR"(\\.\pipe\)" + name_).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                             nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_EQ(server_->WaitClient(false, nullptr).get(), 0u);
  }
  void WriteRaw(std::span<const std::byte> data) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(data.size());
    EXPECT_TRUE(size == 0 || ::WriteFile(raw_.get(), data.data(), size, &written, nullptr));
  }

  const std::wstring name_ = unique_name();
  std::shared_ptr<PipeTransport> server_ = PipeTransport::Create();
  Tamrin::unique_file raw_;
};

TEST_F(PipeEnds, MessageCutAtAnyByteFailsTheReadOrGoesOn) {
  const auto whole = MakeMessage({1, 2, 3, 0}, Pattern(10));
  for (std::size_t cut = 0; cut < whole->bytes().size(); ++cut) {
    Renew();
    const auto read = server_->ReadMessage();
    WriteRaw(whole->bytes().first(cut));
    WriteRaw(whole->bytes().subspan(cut));
    ASSERT_TRUE(std::ranges::equal(read.get()->payload(), Pattern(10))) << cut;
    const auto broken = server_->ReadMessage();
    WriteRaw(whole->bytes().first(cut));
    raw_.reset();
    ASSERT_EQ(outcome_of(broken), to_hresult(ERROR_BROKEN_PIPE)) << cut;
  }
}

// Wine stores a pipe's access rights but does not enforce them.
TEST_F(PipeEnds, DescriptorGuardsThePipe) {
  Renew();
  EXPECT_EQ(testing_support::access_to(raw_.get()), kAccess);
}

TEST_F(PipeEnds, CancelEndsWhatIsPendingAndRefusesWhatComes) {
  const ostra::cancellation_source owner;
  const auto waiting = PipeTransport::Create();
  ASSERT_EQ(waiting->Listen(unique_name(), nullptr), S_OK);
  waiting->LinkCancellation(owner);
  const auto wait = waiting->WaitClient(false, nullptr);
  owner.cancel();
  EXPECT_EQ(outcome_of(wait), to_hresult(ERROR_OPERATION_ABORTED));
  waiting->LinkCancellation(owner);
  EXPECT_EQ(outcome_of(waiting->WaitClient(false, nullptr)), to_hresult(ERROR_CANCELLED));

  Renew();
  const auto read = server_->ReadMessage();
  const auto write = server_->WriteMessage(MakeMessage({}, Pattern(kMoreThanThePipeTakes)));
  EXPECT_FALSE(write.is_complete());
  server_->Cancel();
  EXPECT_EQ(outcome_of(read), to_hresult(ERROR_OPERATION_ABORTED));
  EXPECT_NE(outcome_of(write), S_OK);
}

TEST_F(PipeEnds, DisconnectedServerEndListensAgain) {
  Renew();
  const auto client = PipeTransport::Create();
  server_->Disconnect();
  const auto wait = server_->WaitClient(false, nullptr);
  EXPECT_EQ(client->Connect(L".", name_, 50, 1), S_OK);
  EXPECT_EQ(wait.get(), 0u);
}

TEST_F(PipeEnds, ClientsTokenNamesItAndEndsTheImpersonation) {
  EXPECT_FALSE(server_->GetClientToken(TOKEN_QUERY, false, false));  // no client yet
  Renew();
  WriteRaw(MakeMessage({})->bytes());
  static_cast<void>(server_->ReadMessage().get());

  const CToken token = server_->GetClientToken(TOKEN_QUERY, false, false);
  EXPECT_FALSE(ThreadImpersonates());
  wchar_t user[256] = L"";
  DWORD size = 256;
  EXPECT_TRUE(::GetUserNameW(user, &size));
  EXPECT_TRUE(account_name(token).value_or(L"").ends_with(L"\\" + std::wstring(user)));
  EXPECT_FALSE(account_name(CToken()));

  // An impersonation that is kept ends with its last owner.
  CToken owner = server_->GetClientToken(TOKEN_QUERY, true, false);
  CToken last;
  last = std::move(owner);
  owner = CToken();
  EXPECT_TRUE(ThreadImpersonates());
  last = CToken();
  EXPECT_FALSE(ThreadImpersonates());
}

// The path leads from the mailslots to the pipe, whose handles are overlapped on every system. So
// the operations through the thread pool are tested even where mailslots are synchronous.
TEST_F(PipeEnds, MailslotReadsAndWritesAreOverlapped) {
  ASSERT_EQ(server_->Listen(name_, nullptr), S_OK);
  const auto mailslot = std::make_shared<Mailslot>();
  ASSERT_EQ(mailslot->Open(L".", LR"(..\pipe\)" + name_), S_OK);
  const auto read = mailslot->Read();
  EXPECT_FALSE(read.is_complete());
  const auto message = MakeMessage({1, 2, 3, 0}, Pattern(1000));
  server_->WriteMessage(message).get();
  EXPECT_TRUE(std::ranges::equal(read.get(), message->bytes()));
  const auto write = mailslot->Write(Pattern(kMoreThanThePipeTakes));
  mailslot->Cancel();
  EXPECT_EQ(outcome_of(write), to_hresult(ERROR_OPERATION_ABORTED));
}

}  // namespace
}  // namespace tether
