#include "log/line_queue.h"

#include <gtest/gtest.h>

#include "log/log_entry.h"

namespace logging {
namespace {

TEST(LineQueue, LinesThatDoNotFitComeOutAsOneGapInTheirPlace) {
  constexpr std::size_t kLines = 5000;
  line_queue queue;
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < kLines; ++i)
      queue.push(make_entry(std::wstring(1000, L'x'), info));
    std::size_t lines = 0;
    auto taken = queue.try_pop();
    queue.push(make_entry(L"there is room again, but not yet in order", info));
    for (; taken && taken->left_out == 0; taken = queue.try_pop())
      ++lines;
    EXPECT_EQ(lines, line_queue::kMaxBytes / (2000 + sizeof(log_entry)));
    EXPECT_EQ(taken.value().left_out, kLines + 1 - lines);
    EXPECT_FALSE(queue.try_pop());
  }
}

}  // namespace
}  // namespace logging
