#include "log/screen_copy.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace logging {
namespace {

// Standard output is a pipe that is read only after a while.
TEST(ScreenCopy, BlockedScreenBlocksNoCallerAndShowsThatLinesAreMissing) {
  HANDLE read = nullptr, write = nullptr;
  EXPECT_TRUE(::CreatePipe(&read, &write, nullptr, 0));
  const HANDLE former = ::GetStdHandle(STD_OUTPUT_HANDLE);
  ::SetStdHandle(STD_OUTPUT_HANDLE, write);
  screen_copy given_up, screen;
  given_up.write(std::wstring(100'000, L'y'));  // more than the pipe holds
  EXPECT_FALSE(given_up.finish(50));
  for (int lines = 0; lines < 5000; ++lines)  // more than the queue holds
    screen.write(std::wstring(1000, L'x') + L"\r\n");
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
  ::SetStdHandle(STD_OUTPUT_HANDLE, former);
  EXPECT_NE(shown.find("x\r\n("), std::string::npos);
  EXPECT_TRUE(shown.ends_with(" lines are not shown)\r\n"));
}

}  // namespace
}  // namespace logging
