// Standard input and output with the test at their other end.
#include "client/streams/standard_streams.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

TEST(StandardStreams, ReadEndsOnlyWithTheInput) {
  HANDLE reader = nullptr, writer = nullptr;
  EXPECT_TRUE(::CreatePipe(&reader, &writer, nullptr, 4096));
  input_stream input(reader), unreadable(writer);
  DWORD size = 0;
  const auto abandoned = input.read();
  input.abandon();
  EXPECT_THROW(abandoned.get(), ostra::operation_cancelled);
  EXPECT_THROW(input.read().get(), ostra::operation_cancelled);
  ::WriteFile(writer, "x", 1, &size, nullptr);
  input.resume();
  EXPECT_EQ(input.read().get(), bytes(1, std::byte{'x'}));
  EXPECT_EQ(unreadable.read().get(), bytes());
  EXPECT_EQ(unreadable.error(), DWORD(ERROR_ACCESS_DENIED));
  ::CloseHandle(writer);
  EXPECT_EQ(input.read().get(), bytes());
  EXPECT_EQ(input.error(), DWORD(ERROR_SUCCESS));
}

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
