// Standard output whose other end is the test's. A read that is abandoned is for the system's tests
// to see.
#include "client/streams/standard_streams.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

// The stream's end of the pipe stays open until the process ends, since a write may outlive its test.
struct StandardStreams : testing::Test {
  StandardStreams() { EXPECT_TRUE(::CreatePipe(&reader, &writer, nullptr, 4096)); }

  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
};

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
