#include "log/console.h"

#include <gtest/gtest.h>

#include <algorithm>
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

  // Returns the bytes that arrive while `action` runs, and before.
  template <class Action>
  std::string Collect(Action action) {
    std::thread printer([&] {
      action();
      write_.reset();
    });
    std::string bytes;
    char buffer[4096];
    DWORD size = 0;
    while (::ReadFile(read_.get(), buffer, sizeof buffer, &size, nullptr) && size != 0) {
      bytes.append(buffer, size);
    }
    printer.join();
    read_.reset();
    return bytes;
  }
  std::string Print(std::wstring_view text) {
    return Collect([text] { print(standard_stream::output, text); });
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

TEST(ScreenCopy, StandingScreenHoldsUpNobodyAndShowsHowManyLinesAreMissing) {
  constexpr std::ptrdiff_t kLines = 5000;
  RedirectedOutput output;
  const auto screen = std::make_shared<screen_copy>();
  // More than the pipe takes, and than may wait.
  for (std::ptrdiff_t i = 0; i < kLines; ++i)
    screen->write(std::wstring(1000, L'x') + std::to_wstring(i) + L"\n");
  EXPECT_FALSE(screen->finish(50));
  const std::string shown = output.Collect([&] {
    EXPECT_TRUE(screen->finish(10'000));
    screen->write(L"later\n");
    EXPECT_TRUE(screen->finish(10'000));
  });
  const auto lines = std::count(shown.begin(), shown.end(), '\n') - 2;
  ASSERT_LT(lines, kLines);
  EXPECT_TRUE(shown.ends_with("x" + std::to_string(lines - 1) + "\r\n(" +
                              std::to_string(kLines - lines) +
                              " lines are not shown)\r\nlater\r\n"));
}

TEST(Console, ClosedReaderIsNoError) {
  RedirectedOutput output;
  EXPECT_EQ(output.Print(L"first"), "first");
  print(standard_stream::output, L"nobody has this end any more");
}

}  // namespace
}  // namespace logging
