#include "rpc/mailslot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "rpc/test_support.h"

namespace tether {
namespace {

using test::code_of;
using test::unique_pipe_name;
using bytes = std::vector<std::byte>;

constexpr auto kTooLong = static_cast<HRESULT>(0x8007007A);
constexpr auto kAborted = static_cast<HRESULT>(0x800703E3);
constexpr auto kCancelled = static_cast<HRESULT>(0x800704C7);

bytes pattern(std::size_t size) {
  bytes message(size);
  for (std::size_t i = 0; i < size; ++i)
    message[i] = static_cast<std::byte>(i * 7 + i / 251);
  return message;
}

// A mailslot with an end of each kind.
class MailslotTest : public ::testing::Test {
 protected:
  MailslotTest() {
    EXPECT_EQ(reader_->Create(name_, nullptr), S_OK);
    EXPECT_EQ(writer_->Open(L".", name_), S_OK);
  }

  const std::wstring name_ = unique_pipe_name();
  std::shared_ptr<Mailslot> reader_ = std::make_shared<Mailslot>();
  std::shared_ptr<Mailslot> writer_ = std::make_shared<Mailslot>();
};

TEST_F(MailslotTest, MessagesKeepTheirBoundsAndOrder) {
  const std::size_t sizes[] = {1, 0, 1023, 1024, 0, 5};
  for (const std::size_t size : sizes)
    EXPECT_EQ(writer_->Write(pattern(size)).get(), size);
  for (const std::size_t size : sizes)
    EXPECT_EQ(reader_->Read().get(), pattern(size)) << size;
}

TEST_F(MailslotTest, ReadWaitsForAMessage) {
  for (const std::size_t size : {7u, 0u, 1024u}) {
    const auto read = reader_->Read();
    EXPECT_FALSE(read.is_complete());
    writer_->Write(pattern(size)).get();
    EXPECT_EQ(read.get(), pattern(size));
  }
}

TEST_F(MailslotTest, MessageThatIsTooLongIsNotInTheWayOfTheNext) {
  writer_->Write(pattern(1025)).get();
  writer_->Write(pattern(100'000)).get();
  writer_->Write(pattern(3)).get();
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(code_of([&] { reader_->Read().get(); }), kTooLong);
  EXPECT_EQ(reader_->Read().get(), pattern(3));
}

TEST_F(MailslotTest, CancelEndsAPendingReadAndRefusesWhatComes) {
  const auto read = reader_->Read();
  const auto start = std::chrono::steady_clock::now();
  reader_->Cancel();
  const HRESULT code = code_of([&] { read.get(); });
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_TRUE(code == kAborted || code == kCancelled);
  writer_->Write(pattern(1)).get();
  EXPECT_EQ(code_of([&] { reader_->Read().get(); }), kCancelled);
}

TEST_F(MailslotTest, OperationsHoldTheirMailslot) {
  const ostra::cancellation_source owner;
  reader_->LinkCancellation(owner);
  const auto read = reader_->Read();
  const std::weak_ptr<Mailslot> reader = reader_;
  reader_.reset();
  EXPECT_FALSE(reader.expired());
  owner.cancel();
  EXPECT_NE(code_of([&] { read.get(); }), S_OK);
  EXPECT_TRUE(reader.expired());
}

TEST_F(MailslotTest, CancellationOfTheOwnerBeforeTheLinkIsNotLost) {
  const ostra::cancellation_source owner;
  owner.cancel();
  writer_->LinkCancellation(owner);
  EXPECT_EQ(code_of([&] { writer_->Write(pattern(1)).get(); }), kCancelled);
}

TEST_F(MailslotTest, FailuresAreReported) {
  const auto other = std::make_shared<Mailslot>();
  EXPECT_EQ(other->Create(name_, nullptr), ostra::details::to_hresult(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(other->Open(L".", unique_pipe_name()),
            ostra::details::to_hresult(ERROR_FILE_NOT_FOUND));
  EXPECT_NE(code_of([&] { other->Read().get(); }), S_OK);
  EXPECT_EQ(code_of([&] { other->Write(pattern(1)).get(); }), E_FAIL);
}

// The path leaves the mailslots for a pipe, whose handles are overlapped on every system; so the
// operations through the thread pool are tested where mailslots are synchronous, too.
TEST(MailslotOverPipe, ReadsAndWritesAreOverlapped) {
  const test::listening_pipe server;
  const auto pipe = std::make_shared<Mailslot>();
  ASSERT_EQ(pipe->Open(L".", LR"(..\pipe\)" + server.name), S_OK);
  server.transport->WaitClient(false, nullptr).get();

  const auto read = pipe->Read();
  EXPECT_FALSE(read.is_complete());
  const auto message = test::make_message({1, 2, 3, 0}, pattern(1000));
  server.transport->WriteMessage(message).get();
  EXPECT_TRUE(std::ranges::equal(read.get(), message->bytes()));

  // More than the pipe's buffers take: it stays pending, since nobody reads.
  const auto write = pipe->Write(pattern(16'000'000));
  EXPECT_FALSE(write.is_complete());
  const auto pending = pipe->Read();
  pipe->Cancel();
  EXPECT_EQ(code_of([&] { pending.get(); }), kAborted);
  EXPECT_EQ(code_of([&] { write.get(); }), kAborted);
}

}  // namespace
}  // namespace tether
