#include "async/timer.h"

#include <gtest/gtest.h>

#include <optional>

#include "async/future.h"
#include "async/test_support.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using test::code_of;

constexpr auto kCancelled = static_cast<HRESULT>(0x800704C7);

future<void> wait(async_timer& timer, ticks duration) {
  auto firing = timer.wait(duration);
  co_await firing;
}

TEST(AsyncTimer, FiresAfterItsDurationAndCanBeUsedAgain) {
  async_timer timer;
  for (int round = 0; round < 2; ++round) {
    const auto start = std::chrono::steady_clock::now();
    wait(timer, 30ms).get();
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
  }
}

TEST(AsyncTimer, CancelEndsTheWaitOrTheNextOne) {
  async_timer timer;
  const auto waiting = wait(timer, 1h);
  EXPECT_FALSE(waiting.is_complete());
  timer.cancel();
  EXPECT_THROW(waiting.get(), timer_cancelled);
  wait(timer, 1ms).get();

  timer.cancel();
  const auto refused = wait(timer, 1h);
  EXPECT_TRUE(refused.is_complete());
  EXPECT_THROW(refused.get(), timer_cancelled);
  wait(timer, 1ms).get();
}

future<void> wait_for_cancel(cancellation_token token) {
  auto_cancel_timer timer(token);
  auto firing = timer.wait(1h);
  co_await firing;
}

TEST(AutoCancelTimer, EndsWithItsToken) {
  const cancellation_source source;
  const auto waiting = wait_for_cancel(source.token());
  EXPECT_FALSE(waiting.is_complete());
  source.cancel();
  EXPECT_EQ(code_of([&] { waiting.get(); }), kCancelled);
  EXPECT_THROW(wait_for_cancel(source.token()).get(), operation_cancelled);
}

future<bool> wait_for_handle(HANDLE handle, ticks timeout) {
  handle_wait wait(handle, timeout);
  const bool signalled = co_await wait;
  co_return signalled;
}

TEST(HandleWait, TellsASignalFromATimeout) {
  const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_FALSE(wait_for_handle(event.get(), 10ms).get());
  const auto waiting = wait_for_handle(event.get(), ticks::zero());
  EXPECT_FALSE(waiting.is_complete());
  ::SetEvent(event.get());
  EXPECT_TRUE(waiting.get());
  EXPECT_TRUE(wait_for_handle(event.get(), 1h).get());
}

}  // namespace
}  // namespace ostra
