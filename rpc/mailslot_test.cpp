#include "rpc/mailslot.h"

#include <algorithm>

#include "rpc/pipe_transport.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/testing.h"
#include "tests/support/unit/unique_name.h"

namespace tether {
namespace {

using test::Pattern;
using testing_support::code_of;
using testing_support::unique_name;

constexpr auto kTooLong = static_cast<HRESULT>(0x8007007A);
constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);

// A mailslot with an end of each kind.
class MailslotTest : public ::testing::Test {
 protected:
  MailslotTest() {
    EXPECT_EQ(reader_->Create(name_, nullptr), S_OK);
    EXPECT_EQ(writer_->Open(L".", name_), S_OK);
  }

  const std::wstring name_ = unique_name();
  std::shared_ptr<Mailslot> reader_ = std::make_shared<Mailslot>();
  const std::shared_ptr<Mailslot> writer_ = std::make_shared<Mailslot>();
};

TEST_F(MailslotTest, MessagesKeepTheirBoundsAndOrderButThoseThatAreTooLong) {
  const std::size_t sizes[] = {1, 0, 1024, 1025, 0, 100'000, 5};
  const auto first = reader_->Read();
  EXPECT_FALSE(first.is_complete());
  EXPECT_EQ(writer_->Write(Pattern(7)).get(), 7u);
  EXPECT_EQ(first.get(), Pattern(7));
  for (const std::size_t size : sizes)
    EXPECT_EQ(writer_->Write(Pattern(size)).get(), size);
  for (const std::size_t size : sizes) {
    if (size > Mailslot::kMaxMessage)
      EXPECT_EQ(code_of([&] { return reader_->Read().get(); }), kTooLong);
    else
      EXPECT_EQ(reader_->Read().get(), Pattern(size));
  }
}

TEST_F(MailslotTest, CancelEndsAReadWhichHoldsItsMailslotUntilThen) {
  const ostra::cancellation_source owner;
  reader_->LinkCancellation(owner);
  const auto read = reader_->Read();
  const std::weak_ptr<Mailslot> reader = reader_;
  reader_.reset();
  EXPECT_FALSE(reader.expired());
  owner.cancel();
  EXPECT_NE(code_of([&] { return read.get(); }), S_OK);
  EXPECT_TRUE(reader.expired());
  writer_->LinkCancellation(owner);
  EXPECT_THROW(writer_->Write(Pattern(1)).get(), ostra::operation_cancelled);
}

TEST_F(MailslotTest, FailuresAreReported) {
  const auto other = std::make_shared<Mailslot>();
  EXPECT_EQ(other->Create(name_, nullptr), ostra::details::to_hresult(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(other->Open(L".", unique_name()), ostra::details::to_hresult(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(code_of([&] { return other->Write(Pattern(1)).get(); }), E_FAIL);
}

// The path leaves the mailslots for a pipe, whose handles are overlapped on every system; so the
// operations through the thread pool are tested where mailslots are synchronous, too.
TEST(MailslotOverPipe, ReadsAndWritesAreOverlapped) {
  const auto server = PipeTransport::Create();
  const auto name = unique_name();
  ASSERT_EQ(server->Listen(name, nullptr), S_OK);
  const auto pipe = std::make_shared<Mailslot>();
  ASSERT_EQ(pipe->Open(L".", LR"(..\pipe\)" + name), S_OK);
  server->WaitClient(false, nullptr).get();
  const auto read = pipe->Read();
  EXPECT_FALSE(read.is_complete());
  const auto message = test::MakeMessage({1, 2, 3, 0}, Pattern(1000));
  server->WriteMessage(message).get();
  EXPECT_TRUE(std::ranges::equal(read.get(), message->bytes()));
  // More than the pipe's buffers take: it stays pending, since nobody reads.
  const auto write = pipe->Write(Pattern(16'000'000));
  pipe->Cancel();
  EXPECT_EQ(code_of([&] { return write.get(); }), kAborted);
}

}  // namespace
}  // namespace tether
