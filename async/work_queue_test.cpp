#include "async/work_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "platform/win32.h"

namespace ostra {
namespace {

// A thread of the pool may be quicker than the poster, which is seen once in a few rounds.
TEST(WorkQueue, NeverBlocksItsPoster) {
  const DWORD poster = ::GetCurrentThreadId();
  for (int round = 0; round < 1000; ++round) {
    work_queue queue;
    DWORD worker = poster;
    queue.post([&worker] { worker = ::GetCurrentThreadId(); }).wait();
    ASSERT_NE(worker, poster) << "round " << round;
  }
}

TEST(WorkQueue, RunsItemsOneAfterAnother) {
  work_queue queue;
  std::atomic<int> at_once = 0;
  std::string order;
  future<void> last;
  for (char name = 'a'; name <= 'z'; ++name) {
    last = queue.post([&at_once, &order, name] {
      EXPECT_EQ(++at_once, 1);
      order += name;
      --at_once;
    });
  }
  last.get();
  EXPECT_EQ(order, "abcdefghijklmnopqrstuvwxyz");
}

}  // namespace
}  // namespace ostra
