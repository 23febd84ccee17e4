#include "log/screen_copy.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "console/test_support.h"

namespace logging {
namespace {

TEST(ScreenCopy, StandingScreenHoldsUpNobody) {
  console::test::RedirectedOutput output;
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

}  // namespace
}  // namespace logging
