#include <memory>
#include <new>
#include <string>

#include "async/async_queue.h"
#include "async/future.h"
#include "async/work_queue.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using testing_support::counted;

// Keeps the queue until that is closed, and counts what comes.
template <class T>
future<int> consume(std::shared_ptr<async_queue<T>> queue, counted) {
  int count = 0;
  for (;;) {
    auto popped = queue->pop();
    const auto value = co_await popped;
    if (!value)
      co_return count;
    ++count;
  }
}

TEST(AsyncQueue, ConsumerTakesWhatIsThereAndEndsWithTheQueue) {
  std::atomic<int> living = 0;
  auto queue = std::make_shared<async_queue<int>>();
  EXPECT_TRUE(queue->push(1));
  const auto count = consume(queue, counted(living));
  EXPECT_TRUE(queue->push(2));
  EXPECT_FALSE(count.is_complete());
  // The consumer has the last word on the queue's life.
  const std::weak_ptr<async_queue<int>> weak = queue;
  async_queue<int>& last = *queue;
  queue.reset();
  last.close();
  EXPECT_EQ(count.get(), 2);
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(living, 0);
}

TEST(AsyncQueue, StressOfPushesAgainstTheEnd) {
  std::atomic<int> living = 0;
  testing_support::stress([&](auto& random) {
    auto queue = std::make_shared<async_queue<int>>();
    const auto count = consume(queue, counted(living));
    int taken[2] = {};
    const auto push_all = [&](int& pushed) {
      while (pushed < 200 && queue->push(1))
        ++pushed;
    };
    const bool closes_early = random() % 2 == 0;
    std::thread first([&] { push_all(taken[0]); });
    std::thread second([&] { push_all(taken[1]); });
    if (closes_early) {
      testing_support::spin(random() % 20'000);
      queue->close();
    }
    first.join();
    second.join();
    queue->close();
    const int total = count.get();
    EXPECT_TRUE(closes_early ? total <= taken[0] + taken[1] : total == 400) << total;
    EXPECT_EQ(living, 0);
  });
}

struct fragile {
  explicit fragile(bool fails) : fails_(fails) {}
  fragile(fragile&& other) : fails_(other.fails_) {
    if (fails_)
      throw std::bad_alloc();
  }
  bool fails_;
};

TEST(AsyncQueue, WorksAfterAFailedAllocation) {
  std::atomic<int> living = 0;
  const auto queue = std::make_shared<async_queue<fragile>>();
  const auto count = consume(queue, counted(living));
  EXPECT_THROW(queue->push(fragile(true)), std::bad_alloc);
  EXPECT_TRUE(queue->push(fragile(false)));
  queue->close();
  EXPECT_EQ(count.get(), 1);
}

// A thread of the pool may be quicker than the poster, which is seen once in a few rounds.
TEST(WorkQueue, NeverBlocksItsPosterAndRunsItemsOneAfterAnother) {
  for (int round = 0; round < 300; ++round) {
    work_queue queue;
    std::string order;
    future<void> last;
    for (char name = 'a'; name <= 'f'; ++name) {
      last = queue.post([&order, name, poster = std::this_thread::get_id()] {
        order += std::this_thread::get_id() == poster ? '!' : name;
      });
    }
    last.get();
    ASSERT_EQ(order, "abcdef");
  }
}

TEST(WorkQueue, CloseCompletesEveryItemAndWaitsForNone) {
  promise<void> release;
  const auto released = release.get_future();
  auto queue = std::make_unique<work_queue>();
  std::atomic<bool> begun = false;
  const auto running = queue->post([released, &begun] {
    begun = true;
    released.wait();
  });
  std::atomic<bool> ran = false;
  const auto waiting = queue->post([&ran] { ran = true; });
  EXPECT_TRUE(testing_support::eventually([&] { return begun.load(); }));
  queue.reset();
  EXPECT_TRUE(running.is_complete() && waiting.is_complete());
  release.set_value();
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace ostra
