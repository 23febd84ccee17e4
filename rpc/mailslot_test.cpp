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

TEST(Mailslot, MessagesKeepTheirBoundsAndOrderButThoseThatAreTooLong) {
  const auto reader = std::make_shared<Mailslot>();
  const auto writer = std::make_shared<Mailslot>();
  const auto name = unique_name();
  EXPECT_EQ(writer->Open(L".", name), ostra::details::to_hresult(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(code_of([&] { return writer->Write(Pattern(1)).get(); }), E_FAIL);
  EXPECT_EQ(reader->Create(name, nullptr), S_OK);
  EXPECT_EQ(writer->Create(name, nullptr), ostra::details::to_hresult(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(writer->Open(L".", name), S_OK);
  const auto first = reader->Read();
  EXPECT_FALSE(first.is_complete());
  for (const std::size_t size : {7, 1, 0, 1024, 1025, 0, 100'000, 5})
    EXPECT_EQ(writer->Write(Pattern(size)).get(), size);
  EXPECT_EQ(first.get(), Pattern(7));
  for (const std::size_t size : {1, 0, 1024, 1025, 0, 100'000, 5}) {
    std::vector<std::byte> message;
    const HRESULT code = code_of([&] { return message = reader->Read().get(), 0; });
    EXPECT_EQ(code, size > Mailslot::kMaxMessage ? kTooLong : S_OK);
    EXPECT_EQ(message, Pattern(size > Mailslot::kMaxMessage ? 0 : size));
  }
}

TEST(Mailslot, CancelEndsAReadWhichHoldsItsMailslotUntilThen) {
  const ostra::cancellation_source owner;
  auto reader = std::make_shared<Mailslot>();
  EXPECT_EQ(reader->Create(unique_name(), nullptr), S_OK);
  reader->LinkCancellation(owner);
  const auto read = reader->Read();
  const std::weak_ptr<Mailslot> weak = std::exchange(reader, nullptr);
  EXPECT_FALSE(weak.expired());
  owner.cancel();
  EXPECT_THROW(read.get(), ostra::hresult_error);
  EXPECT_TRUE(weak.expired());
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
