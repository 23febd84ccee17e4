#include <memory>
#include <new>
#include <string>

#include "async/async_queue.h"
#include "async/future.h"
#include "async/work_queue.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

struct item {
  explicit item(bool fails = false) : fails_(fails) {}
  item(item&& other) : fails_(other.fails_) {
    if (fails_)
      throw std::bad_alloc();
  }
  bool fails_;
};
using queue = async_queue<item>;

// Keeps the queue alive until it is closed, and counts the values.
future<int> consume(std::shared_ptr<queue> from) {
  for (int count = 0;; ++count) {
    auto popped = from->pop();
    const auto value = co_await popped;
    if (!value)
      co_return count;
  }
}

TEST(AsyncQueue, ConsumerTakesWhatIsThereBesideAFailureAndEndsWithTheQueue) {
  auto items = std::make_shared<queue>();
  EXPECT_TRUE(items->push(item()));
  const auto count = consume(items);
  EXPECT_THROW(items->push(item(true)), std::bad_alloc);
  EXPECT_TRUE(items->push(item()));
  EXPECT_FALSE(count.is_complete());
  // The consumer is now the queue's last owner.
  queue& last = *items;
  items.reset();
  last.close();
  EXPECT_EQ(count.get(), 2);
}

// A pool thread may overtake the poster, but does so only once in several rounds.
TEST(WorkQueue, NeverBlocksItsPosterAndRunsItemsOneAfterAnother) {
  for (int round = 0; round < 300; ++round) {
    work_queue works;
    std::string order;
    const auto post = [&, poster = std::this_thread::get_id()](char name) {
      return works.post(
          [&order, name, poster] { order += std::this_thread::get_id() == poster ? '!' : name; });
    };
    static_cast<void>(post('a'));
    static_cast<void>(post('b'));
    post('c').get();
    ASSERT_EQ(order, "abc");
    static_cast<void>(works.post([] { testing_support::spin(20'000); }));
    testing_support::spin(static_cast<unsigned>(round) * 100);  // the queue may end during the item
  }
}

TEST(WorkQueue, CloseCompletesEveryItemAndWaitsForNone) {
  promise<void> begin, release;
  const auto begun = begin.get_future();
  std::atomic<bool> ran = false;
  auto works = std::make_unique<work_queue>();
  const auto running = works->post([&begin, released = release.get_future()] {
    begin.set_value();
    released.wait();
  });
  const auto waiting = works->post([&ran] { ran = true; });
  begun.wait();
  works.reset();
  EXPECT_TRUE(running.is_complete() && waiting.is_complete());
  release.set_value();
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace ostra
