// Standard input and output whose other ends are the test's.
#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "client/streams/standard_streams.h"
#include "console/utf8.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

// The stream's end stays open until the process ends, since a read or a write may outlive its test.
struct anonymous_pipe {
  anonymous_pipe() {
    HANDLE end_to_read = nullptr;
    HANDLE end_to_write = nullptr;
    ostra::details::check_bool(::CreatePipe(&end_to_read, &end_to_write, nullptr, 4096));
    reader.reset(end_to_read);
    writer.reset(end_to_write);
  }

  void Write(const bytes& data) const {
    DWORD written = 0;
    EXPECT_TRUE(
        ::WriteFile(writer.get(), data.data(), static_cast<DWORD>(data.size()), &written, nullptr));
  }

  Tamrin::unique_handle reader;
  Tamrin::unique_handle writer;
};

TEST(InputStream, ReadThatIsAbandonedLosesNothingUpToTheEnd) {
  anonymous_pipe pipe;
  input_stream input(pipe.reader.release());
  const auto abandoned = input.read();
  input.abandon();
  EXPECT_THROW(abandoned.get(), ostra::operation_cancelled);
  pipe.Write(console::to_utf8(L"one"));
  EXPECT_EQ(input.read().get(), console::to_utf8(L"one"));
  pipe.writer.reset();
  EXPECT_EQ(input.read().get(), bytes());
}

TEST(OutputStream, WriteThatNobodyReadsHoldsUpNobody) {
  anonymous_pipe pipe;
  output_stream output(pipe.writer.release());
  const auto blocked = output.write(bytes(1024 * 1024));
  const auto behind = output.write(bytes(1));
  EXPECT_FALSE(behind.is_complete());
  output.close();
  blocked.get();
  behind.get();
  output.write(bytes(1)).get();
  EXPECT_EQ(output.error(), DWORD(ERROR_SUCCESS));
}

TEST(OutputStream, TellsThatItsReaderHasGone) {
  anonymous_pipe pipe;
  output_stream output(pipe.writer.release());
  pipe.reader.reset();
  output.write(bytes(1)).get();
  EXPECT_NE(output.error(), DWORD(ERROR_SUCCESS));
}

}  // namespace
}  // namespace tarnwheel::client
