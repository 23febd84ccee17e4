#include "log/screen_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

namespace logging {
namespace {

// Standard output is a pipe that nobody reads, then one that is read, then one without a reader. What
// is printed is UTF-8 with Windows' ends of lines.
TEST(ScreenCopy, StandingScreenHoldsUpNobodyAndShowsHowManyLinesAreMissing) {
  constexpr std::ptrdiff_t kLines = 5000;
  HANDLE read = nullptr, write = nullptr;
  EXPECT_TRUE(::CreatePipe(&read, &write, nullptr, 0));
  const HANDLE former = ::GetStdHandle(STD_OUTPUT_HANDLE);
  ::SetStdHandle(STD_OUTPUT_HANDLE, write);
  screen_copy given_up, screen;
  // More than the pipe takes, and than may wait.
  for (std::ptrdiff_t i = 0; i < kLines; ++i)
    screen.write(std::wstring(1000, L'x') + std::to_wstring(i) + L"\x4E2D\xD83D\xDE00\r\n");
  given_up.write(std::wstring(100'000, L'y'));
  EXPECT_FALSE(given_up.finish(50));
  std::jthread finisher([&] {
    EXPECT_TRUE(screen.finish(10'000));
    ::CloseHandle(write);
  });
  std::string shown;
  char buffer[4096];
  for (DWORD size = 0; ::ReadFile(read, buffer, sizeof buffer, &size, nullptr);)
    shown.append(buffer, size);
  ::CloseHandle(read);
  finisher.join();
  screen_copy().write(L"nobody reads this");
  ::SetStdHandle(STD_OUTPUT_HANDLE, former);
  std::erase(shown, 'y');
  const auto lines = std::ranges::count(shown, '\n') - 1;
  EXPECT_TRUE(shown.ends_with("x" + std::to_string(lines - 1) +
                              "\xE4\xB8\xAD\xF0\x9F\x98\x80\r\n(" + std::to_string(kLines - lines) +
                              " lines are not shown)\r\n"));
}

}  // namespace
}  // namespace logging
