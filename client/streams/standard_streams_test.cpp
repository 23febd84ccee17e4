// Standard output with the test at its other end. The system tests cover abandoned reads.
#include "client/streams/standard_streams.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

// `writer` stays open until the process ends: the first write outlives its stream.
TEST(StandardStreams, UnreadWriteBlocksNobodyAndBrokenPipeFails) {
  HANDLE reader = nullptr, writer = nullptr;
  EXPECT_TRUE(::CreatePipe(&reader, &writer, nullptr, 4096));
  output_stream output(writer), late(writer);
  const auto blocked = output.write(bytes(1024 * 1024));
  const auto behind = output.write(bytes(1));
  EXPECT_FALSE(behind.is_complete());
  output.close();
  blocked.get();
  behind.get();
  output.write(bytes(1)).get();
  EXPECT_EQ(output.error(), DWORD(ERROR_SUCCESS));
  ::CloseHandle(reader);
  late.write(bytes(1)).get();
  EXPECT_NE(late.error(), DWORD(ERROR_SUCCESS));
}

}  // namespace
}  // namespace tarnwheel::client
