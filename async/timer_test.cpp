#include "async/timer.h"

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/within.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using testing_support::code_of;
using testing_support::outcome_of;

// The event waits on a timer, which setting the event cancels.
TEST(AsyncTimer, FiresAfterItsDurationOrIsCancelledAndCanBeUsedAgain) {
  auto_reset_event event;
  for (int round = 0; round < 2; ++round) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.wait_for(30ms).get());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
    const auto waiting = event.wait_for(1h);
    EXPECT_FALSE(waiting.is_complete());
    event.set();
    EXPECT_TRUE(waiting.get());
    event.set();  // for the next wait
    EXPECT_TRUE(event.wait_for(1h).get());
  }
}

// The second wait begins on the thread of the first firing; a cancel there must not wait for it.
future<bool> wait_twice(auto_reset_event& event, ticks first, bool sets = false) {
  auto one = event.wait_for(first);
  co_await one;
  auto other = event.wait_for(1h);
  if (sets)
    event.set();
  const bool is_set = co_await other;
  co_return is_set;
}

TEST(AsyncTimer, StressOfUseWhileOthersCancelIt) {
  auto_reset_event set_in_a_firing;
  EXPECT_TRUE(wait_twice(set_in_a_firing, 1ms, true).get());
  testing_support::stress([](auto& random) {
    const cancellation_source source;
    auto_reset_event event(source.token());
    const auto is_set = wait_twice(event, ticks(random() % 2000));
    const auto set_until_done = [&] {
      while (!is_set.is_complete())
        event.set();
    };
    const std::jthread other(set_until_done);
    if (random() % 2 == 0)
      source.cancel();
    set_until_done();
    code_of([&] { EXPECT_TRUE(is_set.get()); });
  });
}

TEST(AsyncTimer, FiringThatACancelOvertakesDoesNotEndTheNextWait) {
  testing_support::stress([](auto& random) {
    auto_reset_event event;
    const auto is_set = wait_twice(event, 1ms);
    std::this_thread::sleep_for(1ms + std::chrono::microseconds(random() % 500));
    event.set();
    std::this_thread::sleep_for(1ms);
    while (!is_set.is_complete())
      event.set();
    EXPECT_TRUE(is_set.get());
  });
}

TEST(Within, CallOrItsLimitGivesTheOutcome) {
  promise<int> succeeds, fails;
  const auto value = within(succeeds.get_future(), 1h);
  const auto failure = within(fails.get_future(), 1h);
  succeeds.set_value(7);
  fails = {};
  EXPECT_EQ(value.get(), 7);
  EXPECT_THROW(failure.get(), operation_cancelled);
  constexpr auto kTimeout = static_cast<HRESULT>(0x800705B4);
  const promise<void> hangs;
  EXPECT_EQ(outcome_of(within(hangs.get_future(), 10ms)), kTimeout);
  testing_support::stress([](auto& random) {
    promise<void> call;
    const auto limited = within(call.get_future(), 1ms);
    testing_support::spin(random() % 400'000);
    call.set_value();
    const HRESULT outcome = outcome_of(limited);
    EXPECT_TRUE(outcome == S_OK || outcome == kTimeout);
  });
}

}  // namespace
}  // namespace ostra
