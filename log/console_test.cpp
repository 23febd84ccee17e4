#include "log/console.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "log/screen_copy.h"
#include "platform/unique_resource.h"

namespace logging {
namespace {

// Stands in for standard output while it lives and collects what is printed.
class RedirectedOutput {
 public:
  RedirectedOutput() : former_(::GetStdHandle(STD_OUTPUT_HANDLE)) {
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    EXPECT_TRUE(::CreatePipe(&read, &write, nullptr, 0));
    read_.reset(read);
    write_.reset(write);
    ::SetStdHandle(STD_OUTPUT_HANDLE, write);
  }
  ~RedirectedOutput() { ::SetStdHandle(STD_OUTPUT_HANDLE, former_); }

  // Prints `text` and returns the bytes that arrived.
  std::string Print(std::wstring_view text) {
    std::thread printer([&] {
      print(standard_stream::output, text);
      write_.reset();
    });
    std::string bytes;
    char buffer[512];
    DWORD size = 0;
    while (::ReadFile(read_.get(), buffer, sizeof buffer, &size, nullptr) && size != 0) {
      bytes.append(buffer, size);
    }
    printer.join();
    return bytes;
  }

  // Reads the first `size` bytes, and nothing more ever.
  std::string ReadAndClose(DWORD size) {
    std::string bytes(size, '\0');
    EXPECT_TRUE(::ReadFile(read_.get(), bytes.data(), size, &size, nullptr));
    bytes.resize(size);
    read_.reset();
    return bytes;
  }

 private:
  const HANDLE former_;
  Tamrin::unique_handle read_;
  Tamrin::unique_handle write_;
};

TEST(Console, RedirectedTextIsUtf8WithWindowsLineEnds) {
  const struct {
    const wchar_t* text;
    const char* bytes;
  } rows[] = {{L"a\nb\r\nc", "a\r\nb\r\nc"},
              {L"\x4E2D\xD83D\xDE00 \x20AC", "\xE4\xB8\xAD\xF0\x9F\x98\x80 \xE2\x82\xAC"},
              {L"half \xD83D pair", "half \xEF\xBF\xBD pair"},
              {L"", ""}};
  for (const auto& row : rows) {
    RedirectedOutput output;
    EXPECT_EQ(output.Print(row.text), row.bytes);
  }
}

TEST(Console, LongTextArrivesWhole) {
  RedirectedOutput output;
  const std::string bytes = output.Print(std::wstring(300'000, L'\x20AC'));
  EXPECT_EQ(bytes.size(), 900'000u);
}

TEST(ScreenCopy, StandingScreenHoldsUpNobody) {
  RedirectedOutput output;
  const auto screen = std::make_shared<screen_copy>();
  // More than the pipe takes, and than may wait.
  for (std::size_t i = 0; i < 2 * screen_copy::kMostLines; ++i)
    screen->write(L"line " + std::to_wstring(i) + L"\n");
  EXPECT_FALSE(screen->finish(50));
  EXPECT_EQ(output.ReadAndClose(16), "line 0\r\nline 1\r\n");
  EXPECT_TRUE(screen->finish(10'000));
  screen->write(L"to nobody\n");
  EXPECT_TRUE(screen->finish(10'000));
}

TEST(Console, ClosedReaderIsNoError) {
  RedirectedOutput output;
  EXPECT_EQ(output.Print(L"first"), "first");
  print(standard_stream::output, L"nobody has this end any more");
}

}  // namespace
}  // namespace logging
