#include "async/future.h"

#include <string>

#include "async/background.h"
#include "async/event.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using testing_support::counted;

future<int> throw_at_once() {
  details::throw_win32(ERROR_ACCESS_DENIED);
  co_return 0;
}

// Changes its thread so many times.
future<int> hop(int hops, counted = {}) {
  for (int i = 0; i < hops; ++i) {
    resume_background elsewhere;
    co_await elsewhere;
  }
  co_return hops;
}

future<int> sum_of(future<int> first, future<int> second, counted = {}) {
  const int a = co_await first;
  const int b = co_await second;
  co_return a + b;
}

TEST(Future, ValuesAndFailuresTravelAndTakeNoThreadUntilTheyMust) {
  EXPECT_EQ(sum_of(hop(0), hop(2)).get(), 2);
  const auto denied = sum_of(hop(0), throw_at_once());
  EXPECT_TRUE(denied.is_complete());
  EXPECT_EQ(testing_support::code_of([&] { return denied.get(); }),
            static_cast<HRESULT>(0x80070005));
}

// The living of the awaited coroutine when its waiter goes on, and its value.
future<void> observe(future<int> from, std::atomic<int>& living, std::string& seen) {
  const int value = co_await from;
  seen = std::to_string(value) + " with " + std::to_string(living);
}

TEST(Future, RunsToItsEndUnkeptAndItsFrameDiesBeforeTheWaiterResumes) {
  std::atomic<int> living = 0;
  std::string seen;
  promise<int> gate;
  static_cast<void>(observe(sum_of(gate.get_future(), hop(0), counted(living)), living, seen));
  EXPECT_EQ(living, 1);
  gate.set_value(7);
  EXPECT_EQ(seen, "7 with 0");
}

TEST(Promise, ThatIsAbandonedCancelsItsWaiter) {
  promise<int> promised;
  const auto orphan = promised.get_future();
  promise<int> other;
  other = std::move(promised);
  EXPECT_FALSE(orphan.is_complete());
  other = {};
  EXPECT_THROW(orphan.get(), operation_cancelled);
}

// The thread that blocks leaves its frame the moment it is woken.
TEST(Future, StressOfCompletionAgainstItsWaiters) {
  std::atomic<int> living = 0;
  int hops = 0;
  testing_support::stress([&](auto& random) {
    promise<int> promised;
    const auto sum = sum_of(promised.get_future(), hop(hops, counted(living)), counted(living));
    const std::jthread completer([&, steps = random() % 500] {
      testing_support::spin(steps);
      promised.set_value(1);
    });
    EXPECT_EQ(sum.get(), 1 + hops);
    EXPECT_EQ(living, 0);
    hops = (hops + 1) % 4;
  });
}

TEST(AsyncEvent, ReleasesTheWaiterThatComesWithTheSignal) {
  async_event event(true);
  for (int round = 0; round < 200; ++round) {
    EXPECT_TRUE(event.wait().is_complete());
    event.reset();
    const auto first = event.wait();
    EXPECT_FALSE(first.is_complete());
    const std::jthread setter([&event] { event.set(); });
    event.wait().get();
    first.get();
  }
}

}  // namespace
}  // namespace ostra
