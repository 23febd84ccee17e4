#include "log/screen_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "console/test_support.h"

namespace logging {
namespace {

TEST(ScreenCopy, StandingScreenHoldsUpNobodyAndShowsHowManyLinesAreMissing) {
  constexpr std::ptrdiff_t kLines = 5000;
  console::test::RedirectedOutput output;
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

}  // namespace
}  // namespace logging
