#include "log/screen_copy.h"

#include <algorithm>
#include <string>

#include "console/test_support.h"

namespace logging {
namespace {

TEST(ScreenCopy, StandingScreenHoldsUpNobodyAndShowsHowManyLinesAreMissing) {
  constexpr std::ptrdiff_t kLines = 5000;
  console::test::RedirectedOutput output;
  screen_copy given_up, screen;
  // More than the pipe takes, and than may wait.
  for (std::ptrdiff_t i = 0; i < kLines; ++i)
    screen.write(std::wstring(1000, L'x') + std::to_wstring(i) + L"\n");
  given_up.write(std::wstring(100'000, L'y'));
  EXPECT_FALSE(given_up.finish(50));
  std::string shown = output.Collect([&] { EXPECT_TRUE(screen.finish(10'000)); });
  std::erase(shown, 'y');
  const auto lines = std::ranges::count(shown, '\n') - 1;
  EXPECT_TRUE(shown.ends_with("x" + std::to_string(lines - 1) + "\r\n(" +
                              std::to_string(kLines - lines) + " lines are not shown)\r\n"));
}

}  // namespace
}  // namespace logging
