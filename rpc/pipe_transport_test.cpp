#include "rpc/pipe_transport.h"

#include <algorithm>

#include "rpc/security_descriptor.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/named_objects.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using ostra::details::to_hresult;
using test::MakeMessage;
using test::Pattern;
using testing_support::unique_name;

constexpr wchar_t kAccess[] = L"D:P(D;;FA;;;AN)(A;;FA;;;WD)";

template <class Result>
HRESULT Outcome(const ostra::future<Result>& operation) {
  return testing_support::code_of([&] { return operation.get(), 0; });
}

// A server's end, and a client that knows nothing of messages.
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
  void WriteRaw(std::span<const std::byte> bytes) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(bytes.size());
    EXPECT_TRUE(size == 0 || ::WriteFile(raw_.get(), bytes.data(), size, &written, nullptr));
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
    ASSERT_EQ(Outcome(broken), to_hresult(ERROR_BROKEN_PIPE)) << cut;
  }
}

// Wine stores the access to a pipe but does not enforce it.
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
  EXPECT_EQ(Outcome(wait), to_hresult(ERROR_OPERATION_ABORTED));
  waiting->LinkCancellation(owner);
  EXPECT_EQ(Outcome(waiting->WaitClient(false, nullptr)), to_hresult(ERROR_CANCELLED));

  Renew();
  const auto read = server_->ReadMessage();
  // More than the pipe's buffers take: it stays pending, since the client does not read.
  const auto write = server_->WriteMessage(MakeMessage({}, Pattern(16'000'000)));
  EXPECT_FALSE(write.is_complete());
  server_->Cancel();
  EXPECT_EQ(Outcome(read), to_hresult(ERROR_OPERATION_ABORTED));
  EXPECT_NE(Outcome(write), S_OK);
}

TEST_F(PipeEnds, EndThatIsThrownOffListensAgainWhenItIsToldTo) {
  Renew();
  const auto client = PipeTransport::Create();
  server_->Disconnect();
  EXPECT_EQ(client->Connect(L".", name_, 50, 1), to_hresult(ERROR_PIPE_BUSY));
  const auto wait = server_->WaitClient(false, nullptr);
  EXPECT_EQ(client->Connect(L".", name_, 50, 1), S_OK);
  EXPECT_EQ(wait.get(), 0u);
}

}  // namespace
}  // namespace tether
