#include "async/future.h"

#include <memory>
#include <vector>

#include "async/background.h"
#include "async/event.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using testing_support::code_of;
using testing_support::counted;

future<int> value_at_once(int value) {
  co_return value;
}

future<int> throw_at_once() {
  details::throw_win32(ERROR_ACCESS_DENIED);
  co_return 0;
}

// Changes its thread so many times.
future<int> hop(int hops, counted) {
  for (int i = 0; i < hops; ++i) {
    resume_background elsewhere;
    co_await elsewhere;
  }
  co_return hops;
}

future<int> await_both(future<int> first, future<int> second) {
  const int a = co_await first;
  const int b = co_await second;
  co_return a + b;
}

TEST(Future, ValuesAndFailuresTravelThroughAwaitAndWait) {
  std::atomic<int> living = 0;
  constexpr auto kDenied = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(await_both(value_at_once(1), hop(2, counted(living))).get(), 3);
  EXPECT_EQ(code_of([&] { return await_both(hop(1, counted(living)), throw_at_once()).get(); }),
            kDenied);
  // On the caller's thread until it suspends.
  EXPECT_TRUE(await_both(value_at_once(1), value_at_once(2)).is_complete());
  EXPECT_TRUE(throw_at_once().is_complete());
}

// Locals and parameters of the finished coroutine are gone when its waiter runs.
future<int> living_after(std::atomic<int>& living) {
  auto held = hop(1, counted(living));
  co_await held;
  co_return living.load();
}

TEST(Future, FrameDiesBeforeTheWaiterResumes) {
  std::atomic<int> living = 0;
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(living_after(living).get(), 0);
}

future<void> pass_on(future<int> from, std::atomic<int>& sum, counted) {
  const int value = co_await from;
  sum += value;
}

TEST(Future, RunsToItsEndWhenNobodyKeepsIt) {
  std::atomic<int> living = 0;
  std::atomic<int> sum = 0;
  promise<int> gate;
  static_cast<void>(pass_on(gate.get_future(), sum, counted(living)));
  EXPECT_EQ(living, 1);
  gate.set_value(7);
  EXPECT_EQ(sum, 7);
  EXPECT_EQ(living, 0);
}

TEST(Promise, ThatIsAbandonedCancelsItsWaiter) {
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

future<int> sum_of_ones(int rounds) {
  int sum = 0;
  for (int i = 0; i < rounds; ++i) {
    auto step = value_at_once(1);
    sum += co_await step;
  }
  co_return sum;
}

TEST(Future, LoopsOverCompletedFuturesDoNotGrowTheStack) {
  EXPECT_EQ(sum_of_ones(300'000).get(), 300'000);
}

// The thread that blocks leaves its frame the moment it is woken.
TEST(Future, StressOfCompletionAgainstItsWaiters) {
  std::atomic<int> living = 0;
  std::atomic<int> sum = 0;
  int rounds = 0;
  testing_support::stress([&](auto& random) {
    promise<int> promised;
    auto result = promised.get_future();
    std::thread completer([&, steps = random() % 500] {
      testing_support::spin(steps);
      promised.set_value(1);
    });
    static_cast<void>(pass_on(std::move(result), sum, counted(living)));
    const int hops = ++rounds % 4;
    EXPECT_EQ(hop(hops, counted(living)).get(), hops);
    completer.join();
    EXPECT_EQ(living, 0);
    EXPECT_EQ(sum, rounds);
  });
}

TEST(AsyncEvent, ReleasesTheWaiterThatComesWithTheSignal) {
  async_event event(true);
  for (int round = 0; round < 200; ++round) {
    EXPECT_TRUE(event.wait().is_complete());
    event.reset();
    const auto first = event.wait();
    EXPECT_FALSE(first.is_complete());
    std::thread setter([&event] { event.set(); });
    event.wait().get();
    first.get();
    setter.join();
  }
}

}  // namespace
}  // namespace ostra
