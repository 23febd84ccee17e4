#include "async/future.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "async/background.h"
#include "async/test_support.h"

namespace ostra {
namespace {

using test::counted;

future<int> value_at_once(int value) {
  co_return value;
}

future<int> throw_at_once() {
  details::throw_win32(ERROR_ACCESS_DENIED);
  co_return 0;
}

future<int> add_on_pool(int a, int b) {
  co_await resume_background();
  co_return a + b;
}

future<int> await_both(future<int> first, future<int> second) {
  const int a = co_await first;
  const int b = co_await second;
  co_return a + b;
}

TEST(Future, ValuesAndFailuresTravelThroughAwaitAndWait) {
  EXPECT_EQ(await_both(value_at_once(1), add_on_pool(2, 3)).get(), 6);
  EXPECT_EQ(test::code_of([] { throw_at_once().get(); }), static_cast<HRESULT>(0x80070005));
  EXPECT_EQ(test::code_of([] { await_both(add_on_pool(1, 1), throw_at_once()).get(); }),
            static_cast<HRESULT>(0x80070005));
}

TEST(Future, RunsOnTheCallersThreadUntilItSuspends) {
  EXPECT_TRUE(value_at_once(1).is_complete());
  EXPECT_TRUE(throw_at_once().is_complete());
  const auto thread_of = [](future<int> done, std::thread::id& after) -> future<void> {
    co_await done;
    after = std::this_thread::get_id();
  };
  std::thread::id after;
  EXPECT_TRUE(thread_of(value_at_once(1), after).is_complete());
  EXPECT_EQ(after, std::this_thread::get_id());
}

// Locals and parameters of the finished coroutine are gone when its waiter runs.
future<void> hold(counted parameter) {
  const counted local(*parameter.count);
  co_await resume_background();
}

future<int> living_after(std::atomic<int>& living) {
  auto held = hold(counted(living));
  co_await held;
  co_return living.load();
}

TEST(Future, FrameDiesBeforeTheWaiterResumes) {
  std::atomic<int> living = 0;
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(living_after(living).get(), 0);
}

future<void> set_when_released(future<void> gate, counted, std::atomic<bool>& finished) {
  co_await gate;
  finished = true;
}

TEST(Future, RunsToItsEndWhenNobodyKeepsIt) {
  std::atomic<int> living = 0;
  std::atomic<bool> finished = false;
  promise<void> gate;
  static_cast<void>(set_when_released(gate.get_future(), counted(living), finished));
  EXPECT_EQ(living, 1);
  gate.set_value();
  EXPECT_TRUE(finished);
  EXPECT_EQ(living, 0);
}

TEST(Future, AbandonedPromiseCancelsItsWaiter) {
  future<int> orphan;
  {
    promise<int> promised;
    orphan = promised.get_future();
    promise<int> other;
    other = std::move(promised);
    EXPECT_FALSE(orphan.is_complete());
  }
  EXPECT_THROW(orphan.get(), operation_cancelled);
}

TEST(Future, MoveOnlyValuesAreMovedOut) {
  promise<std::unique_ptr<int>> promised;
  const auto future = promised.get_future();
  promised.set_value(std::make_unique<int>(7));
  EXPECT_EQ(*future.get(), 7);
}

future<void> count_completed(int rounds, int& count) {
  for (int i = 0; i < rounds; ++i) {
    auto step = value_at_once(1);
    count += co_await step;
  }
}

TEST(Future, LoopsOverCompletedFuturesDoNotGrowTheStack) {
  int count = 0;
  count_completed(1'000'000, count).get();
  EXPECT_EQ(count, 1'000'000);
}

TEST(Future, BlockingWaitMeetsCompletionFromAnotherThread) {
  for (int i = 0; i < 500; ++i)
    ASSERT_EQ(add_on_pool(i, 1).get(), i + 1);
}

}  // namespace
}  // namespace ostra
