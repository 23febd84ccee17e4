// Standard input and output whose other ends are the test's.
#include "client/streams/standard_streams.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "console/utf8.h"
#include "tests/support/unit/testing.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

// The stream's end of the pipe stays open until the process ends, since a read or a write may outlive
// its test.
struct StandardStreams : testing::Test {
  StandardStreams() { EXPECT_TRUE(::CreatePipe(&reader, &writer, nullptr, 4096)); }

  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
};

TEST_F(StandardStreams, ReadThatIsAbandonedLosesNothingUpToTheEnd) {
  input_stream input(reader);
  // The bytes come before or after the next call.
  for (int round = 0; round < 20; ++round) {
    const auto abandoned = input.read();
    input.abandon();
    EXPECT_THROW(abandoned.get(), ostra::operation_cancelled);
    DWORD size = 0;
    EXPECT_TRUE(::WriteFile(writer, "one", 3, &size, nullptr));
    EXPECT_TRUE(testing_support::eventually([&] {
      return round % 2 == 0 ||
             (::PeekNamedPipe(reader, nullptr, 0, nullptr, &size, nullptr) && size == 0);
    }));
    EXPECT_EQ(input.read().get(), console::to_utf8(L"one"));
  }
  ::CloseHandle(writer);
  EXPECT_EQ(input.read().get(), bytes());
}

TEST_F(StandardStreams, WriteThatNobodyReadsHoldsUpNobody) {
  output_stream output(writer);
  const auto blocked = output.write(bytes(1024 * 1024));
  const auto behind = output.write(bytes(1));
  EXPECT_FALSE(behind.is_complete());
  output.close();
  blocked.get();
  behind.get();
  output.write(bytes(1)).get();
  EXPECT_EQ(output.error(), DWORD(ERROR_SUCCESS));
}

TEST_F(StandardStreams, WriteTellsThatItsReaderHasGone) {
  output_stream output(writer);
  ::CloseHandle(reader);
  output.write(bytes(1)).get();
  EXPECT_NE(output.error(), DWORD(ERROR_SUCCESS));
}

}  // namespace
}  // namespace tarnwheel::client
