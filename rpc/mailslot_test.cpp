#include "rpc/mailslot.h"

#include <algorithm>

#include "rpc/pipe_transport.h"
#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/named_objects.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using test::Pattern;

// The path leaves the mailslots for a pipe, whose handles are overlapped on every system; so the
// operations through the thread pool are tested where mailslots are synchronous, too.
TEST(MailslotOverPipe, ReadsAndWritesAreOverlapped) {
  const auto server = PipeTransport::Create();
  const auto name = testing_support::unique_name();
  ASSERT_EQ(server->Listen(name, nullptr), S_OK);
  const auto pipe = std::make_shared<Mailslot>();
  ASSERT_EQ(pipe->Open(L".", LR"(..\pipe\)" + name), S_OK);
  const auto read = pipe->Read();
  EXPECT_FALSE(read.is_complete());
  const auto message = test::MakeMessage({1, 2, 3, 0}, Pattern(1000));
  server->WriteMessage(message).get();
  EXPECT_TRUE(std::ranges::equal(read.get(), message->bytes()));
  // More than the pipe's buffers take: it stays pending, since nobody reads.
  const auto write = pipe->Write(Pattern(16'000'000));
  pipe->Cancel();
  EXPECT_EQ(testing_support::code_of([&] { return write.get(); }),
            static_cast<HRESULT>(0x800703E3));
}

}  // namespace
}  // namespace tether
