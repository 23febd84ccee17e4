#include "async/timer.h"

#include <vector>

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/within.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using testing_support::code_of;
using testing_support::counted;

constexpr auto kTimeout = static_cast<HRESULT>(0x800705B4);

future<void> wait(async_timer& timer, ticks duration) {
  auto firing = timer.wait(duration);
  co_await firing;
}

TEST(AsyncTimer, FiresAfterItsDurationOrIsCancelledAndCanBeUsedAgain) {
  async_timer timer;
  for (int round = 0; round < 2; ++round) {
    const auto start = std::chrono::steady_clock::now();
    wait(timer, 30ms).get();
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
    const auto waiting = wait(timer, 1h);
    EXPECT_FALSE(waiting.is_complete());
    timer.cancel();
    EXPECT_THROW(waiting.get(), timer_cancelled);
    wait(timer, 1ms).get();
    timer.cancel();  // the next wait
    EXPECT_THROW(wait(timer, 1h).get(), timer_cancelled);
  }
}

TEST(AutoResetEvent, IsSetOnceExpiresAndEndsWithItsToken) {
  const cancellation_source source;
  auto_reset_event event(source.token());
  event.set();
  event.set();
  EXPECT_TRUE(event.wait_for(1h).get());
  EXPECT_FALSE(event.wait_for(1ms).get());
  const auto waiting = event.wait_for(1h);
  EXPECT_FALSE(waiting.is_complete());
  event.set();
  EXPECT_TRUE(waiting.get());
  const auto cancelled = event.wait_for(1h);
  source.cancel();
  EXPECT_THROW(cancelled.get(), operation_cancelled);
  EXPECT_THROW(auto_reset_event(source.token()), operation_cancelled);
}

future<bool> wait_for_handle(HANDLE handle, ticks timeout, counted) {
  handle_wait wait(handle, timeout);
  const bool signalled = co_await wait;
  co_return signalled;
}

TEST(Within, CallOrItsLimitGivesTheOutcome) {
  const promise<void> hangs;
  promise<int> succeeds;
  promise<void> fails;
  const auto value = within(succeeds.get_future(), 1h);
  const auto failure = within(fails.get_future(), 1h);
  succeeds.set_value(7);
  fails.set_exception(std::make_exception_ptr(operation_cancelled()));
  EXPECT_EQ(value.get(), 7);
  EXPECT_THROW(failure.get(), operation_cancelled);
  EXPECT_EQ(code_of([&] { return within(hangs.get_future(), 10ms).get(), 0; }), kTimeout);
}

// Each ends a wait of its own in two ways at once: a timer by its cancellation and its firing, a
// handle by its signal and its time, a call by its result and its limit.
future<bool> short_wait(cancellation_token token, ticks duration, counted) {
  auto_cancel_timer timer(token);
  bool fired = true;
  try {
    auto firing = timer.wait(duration);
    co_await firing;
  } catch (const operation_cancelled&) {
    fired = false;
  }
  co_return fired;
}

TEST(AsyncTimer, StressOfEndsAtTheSameTime) {
  std::atomic<int> living = 0;
  testing_support::stress([&](auto& random) {
    const cancellation_source source;
    const auto token = source.token();
    const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    promise<void> call;
    std::vector<future<bool>> waits;
    for (int i = 0; i < 8; ++i)
      waits.push_back(short_wait(token, ticks(random() % 20'000), counted(living)));
    waits.push_back(wait_for_handle(event.get(), ticks(1 + random() % 20'000), counted(living)));
    const auto limited = within(call.get_future(), 1ms);
    EXPECT_FALSE(wait_for_handle(event.get(), ticks(1), counted(living)).get());
    testing_support::spin(random() % 200'000);
    ::SetEvent(event.get());
    call.set_value();
    source.cancel();
    EXPECT_TRUE(wait_for_handle(event.get(), ticks::zero(), counted(living)).get());
    for (const auto& each : waits)
      each.get();
    const HRESULT outcome = code_of([&] { return limited.get(), 0; });
    EXPECT_TRUE(outcome == S_OK || outcome == kTimeout);
    EXPECT_EQ(living, 0);
  });
}

// The number of waits that ended too early with anything but timer_cancelled.
future<int> wait_twice(async_timer& timer, ticks first) {
  int early = 0;
  for (const ticks duration : {first, ticks(1h)}) {
    try {
      auto firing = timer.wait(duration);
      co_await firing;
      early += duration == 1h ? 1 : 0;
    } catch (const timer_cancelled&) {
    }
  }
  co_return early;
}

TEST(AsyncTimer, StressOfUseWhileOthersCancelIt) {
  testing_support::stress([&](auto& random) {
    async_timer timer;
    const auto waits = wait_twice(timer, ticks(random() % 2000));
    const auto cancel_until_done = [&] {
      while (!waits.is_complete())
        timer.cancel();
    };
    std::thread other(cancel_until_done);
    cancel_until_done();
    other.join();
    EXPECT_EQ(waits.get(), 0);
  });
}

}  // namespace
}  // namespace ostra
