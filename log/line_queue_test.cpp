#include "log/line_queue.h"

#include <gtest/gtest.h>

#include "log/log_entry.h"

namespace logging {
namespace {

TEST(LineQueue, LinesThatDoNotFitComeOutAsOneGapInTheirPlace) {
  constexpr std::size_t kLines = 5000;
  line_queue<log_entry> queue;
  log_entry taken;
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < kLines; ++i)
      queue.push(make_entry(std::wstring(1000, L'x'), info));
    ASSERT_TRUE(queue.take(taken));
    queue.push(make_entry(L"there is room again, but not yet in order", info));
    std::size_t lines = 1;
    while (queue.take(taken) && taken.left_out == 0) {
      EXPECT_EQ(taken.text.size(), 1000u);
      ++lines;
    }
    EXPECT_EQ(lines, line_queue<log_entry>::kMostBytes / (2000 + sizeof(log_entry)));
    EXPECT_EQ(taken.left_out, kLines + 1 - lines);
    EXPECT_TRUE(queue.empty());
  }
  EXPECT_FALSE(queue.take(taken));
  taken.left_out = 12;
  EXPECT_TRUE(line_pattern().format(taken).ends_with(L"\tWARNING\t12 lines were left out\r\n"));
}

}  // namespace
}  // namespace logging
