#include "async/timer.h"

#include "async/future.h"
#include "async/within.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using testing_support::code_of;

// False when the wait was cancelled.
future<bool> wait(async_timer& timer, ticks duration) {
  try {
    auto firing = timer.wait(duration);
    co_await firing;
    co_return true;
  } catch (const timer_cancelled&) {
  }
  co_return false;
}

TEST(AsyncTimer, FiresAfterItsDurationOrIsCancelledAndCanBeUsedAgain) {
  async_timer timer;
  for (int round = 0; round < 2; ++round) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(wait(timer, 30ms).get());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
    const auto waiting = wait(timer, 1h);
    EXPECT_FALSE(waiting.is_complete());
    timer.cancel();
    EXPECT_FALSE(waiting.get());
    timer.cancel();  // the next wait
    EXPECT_FALSE(wait(timer, 1h).get());
  }
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
  EXPECT_EQ(code_of([&] { within(hangs.get_future(), 10ms).get(); }), kTimeout);
  testing_support::stress([](auto& random) {
    promise<void> call;
    const auto limited = within(call.get_future(), 1ms);
    testing_support::spin(random() % 400'000);
    call.set_value();
    const HRESULT outcome = code_of([&] { limited.get(); });
    EXPECT_TRUE(outcome == S_OK || outcome == kTimeout);
  });
}

// The second wait begins on the thread of the first firing, which a cancel here must not wait for.
future<bool> wait_twice(async_timer& timer, ticks first, bool cancels = false) {
  auto one = wait(timer, first);
  co_await one;
  auto other = wait(timer, 1h);
  if (cancels)
    timer.cancel();
  const bool fired = co_await other;
  co_return fired;
}

TEST(AsyncTimer, StressOfUseWhileOthersCancelIt) {
  async_timer cancelled_in_a_firing;
  EXPECT_FALSE(wait_twice(cancelled_in_a_firing, 1ms, true).get());
  testing_support::stress([](auto& random) {
    const cancellation_source source;
    auto_cancel_timer timer(source.token());
    const auto fired_early = wait_twice(timer, ticks(random() % 2000));
    const auto cancel_until_done = [&] {
      source.cancel();
      while (!fired_early.is_complete())
        timer.cancel();
    };
    const std::jthread other(cancel_until_done);
    cancel_until_done();
    EXPECT_FALSE(fired_early.get());
  });
}

}  // namespace
}  // namespace ostra
