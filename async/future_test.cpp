#include "async/future.h"

#include <memory>
#include <string>

#include "async/background.h"
#include "async/event.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using life = std::shared_ptr<int>;  // its use count tells how many coroutines are alive

// Changes threads `hops` times.
future<int> hop(int hops, life = {}) {
  for (int i = 0; i < hops; ++i) {
    resume_background elsewhere;
    co_await elsewhere;
  }
  co_return hops;
}

future<int> sum_of(future<int> first, future<int> second, life = {}) {
  const int a = co_await first;
  const int b = co_await second;
  co_return a + b;
}

// Records the value of the awaited coroutine, and how many are alive when its waiter resumes.
future<void> observe(future<int> from, life& living, std::string& seen) {
  const int value = co_await from;
  seen = std::to_string(value) + " with " + std::to_string(living.use_count() - 1);
}

TEST(Future, UnkeptOneFinishesAndFreesItsFrameBeforeItsWaiterResumes) {
  auto living = std::make_shared<int>();
  std::string seen;
  promise<int> gate;
  static_cast<void>(observe(sum_of(gate.get_future(), hop(0), living), living, seen));
  EXPECT_EQ(living.use_count(), 2);
  gate.set_value(7);
  EXPECT_EQ(seen, "7 with 0");
}

// The blocked thread leaves the frame that it sleeps in as soon as it is woken.
TEST(Future, StressOfCompletionAgainstItsWaiters) {
  const auto living = std::make_shared<int>();
  int hops = 0;
  testing_support::stress([&](auto& random) {
    promise<int> promised;
    const auto sum = sum_of(promised.get_future(), hop(hops, living), living);
    const std::jthread completer([&, steps = random() % 500] {
      testing_support::spin(steps);
      promised.set_value(1);
    });
    EXPECT_EQ(sum.get(), 1 + hops);
    EXPECT_EQ(living.use_count(), 1);
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
