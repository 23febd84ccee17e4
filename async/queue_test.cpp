#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "async/async_queue.h"
#include "async/future.h"
#include "async/work_queue.h"
#include "tests/support/unit/testing.h"

namespace {

thread_local int allocations_until_failure = -1;  // negative: none fails

}  // namespace

void* operator new(std::size_t size) {
  if (allocations_until_failure >= 0 && allocations_until_failure-- == 0)
    throw std::bad_alloc();
  void* const memory = std::malloc(size);
  if (memory == nullptr)
    throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace ostra {
namespace {

using testing_support::counted;

// Keeps the queue until that is closed, and counts what comes.
future<int> consume(std::shared_ptr<async_queue<int>> queue, counted) {
  int sum = 0;
  for (;;) {
    auto popped = queue->pop();
    const auto value = co_await popped;
    if (!value)
      co_return sum;
    sum += *value;
  }
}

TEST(AsyncQueue, ConsumerTakesWhatIsThereAndEndsWithTheQueue) {
  std::atomic<int> living = 0;
  auto queue = std::make_shared<async_queue<int>>();
  EXPECT_TRUE(queue->push(1));
  const auto sum = consume(queue, counted(living));
  EXPECT_TRUE(queue->push(20));
  EXPECT_FALSE(sum.is_complete());
  // The consumer has the last word on the queue's life.
  const std::weak_ptr<async_queue<int>> weak = queue;
  async_queue<int>& last = *queue;
  queue.reset();
  last.close();
  EXPECT_EQ(sum.get(), 21);
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(living, 0);
}

TEST(AsyncQueue, StressOfPushesAgainstTheEnd) {
  std::atomic<int> living = 0;
  testing_support::stress([&](auto& random) {
    auto queue = std::make_shared<async_queue<int>>();
    const auto sum = consume(queue, counted(living));
    int taken[2] = {};
    const auto push_all = [&](int& count) {
      while (count < 200 && queue->push(1))
        ++count;
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
    const int total = sum.get();
    EXPECT_TRUE(closes_early ? total <= taken[0] + taken[1] : total == 400) << total;
    EXPECT_EQ(living, 0);
  });
}

TEST(AsyncQueue, WorksAfterAFailedAllocation) {
  std::atomic<int> living = 0;
  const auto queue = std::make_shared<async_queue<int>>();
  const auto sum = consume(queue, counted(living));
  allocations_until_failure = 0;
  EXPECT_THROW(queue->push(1), std::bad_alloc);
  EXPECT_TRUE(queue->push(2));
  queue->close();
  EXPECT_EQ(sum.get(), 2);
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
