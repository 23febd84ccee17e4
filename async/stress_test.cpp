// Races cancellation, completion and destruction against each other on every core. Lasts as many
// seconds a case as TARNWHEEL_STRESS_SECONDS says, one by default.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "async/background.h"
#include "async/future.h"
#include "async/handle_wait.h"
#include "async/overlapped.h"
#include "async/test_support.h"
#include "async/timer.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using test::counted;

std::chrono::seconds stress_duration() {
  const char* const text = std::getenv("TARNWHEEL_STRESS_SECONDS");
  return std::chrono::seconds(text != nullptr ? std::atoi(text) : 1);
}

// Calls `round(random)` until the time is up, and counts the rounds.
template <class Round>
int repeat(Round round) {
  std::minstd_rand random(12345);
  const auto end = std::chrono::steady_clock::now() + stress_duration();
  int rounds = 0;
  for (; std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure(); ++rounds) {
    round(random);
  }
  return rounds;
}

void spin(unsigned steps) {
  static std::atomic<unsigned> sink = 0;
  for (unsigned i = 0; i < steps; ++i)
    sink.store(i, std::memory_order_relaxed);
}

future<DWORD> read_byte(const io_binding& binding, char& byte, cancellation_token token, counted) {
  io_call read(binding, read_file{&byte, 1}, token);
  const DWORD size = co_await read;
  co_return size;
}

TEST(Stress, ReadsAgainstCancellationAndCompletion) {
  std::atomic<int> living = 0;
  int completed = 0;
  int cancelled = 0;
  repeat([&](auto& random) {
    const test::pipe_pair pipe;
    io_binding binding;
    binding.bind(pipe.server.get(), random() % 2 == 0 ? immediate_success::continues_inline
                                                      : immediate_success::queues_completion);
    char byte = 0;
    const cancellation_source source;
    const auto write_delay = random() % 4000;
    const auto cancel_delay = random() % 4000;
    const auto token = source.token();
    std::thread writer([&] {
      spin(static_cast<unsigned>(write_delay));
      pipe.client_writes('x');
    });
    std::thread canceller([&] {
      spin(static_cast<unsigned>(cancel_delay));
      source.cancel();
    });
    const auto read = read_byte(binding, byte, token, counted(living));
    const HRESULT code = test::code_of([&] { EXPECT_EQ(read.get(), 1u); });
    EXPECT_TRUE(code == S_OK || code == static_cast<HRESULT>(0x800703E3) ||
                code == static_cast<HRESULT>(0x800704C7))
        << std::hex << code;
    ++(code == S_OK ? completed : cancelled);
    writer.join();
    canceller.join();
    EXPECT_EQ(living, 0);
  });
  EXPECT_GT(completed, 0);
  EXPECT_GT(cancelled, 0);
}

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

TEST(Stress, TimersAgainstCancellationAndDestruction) {
  std::atomic<int> living = 0;
  repeat([&](auto& random) {
    const cancellation_source source;
    const auto token = source.token();
    std::vector<future<bool>> waits;
    for (int i = 0; i < 8; ++i) {
      waits.push_back(short_wait(token, ticks(random() % 20'000), counted(living)));
    }
    spin(static_cast<unsigned>(random() % 200'000));
    source.cancel();
    for (const auto& wait : waits)
      wait.get();
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

TEST(Stress, TimerIsUsedAgainWhileOthersCancelIt) {
  repeat([&](auto& random) {
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

future<bool> wait_for_event(HANDLE event, ticks timeout, counted) {
  handle_wait wait(event, timeout);
  const bool signalled = co_await wait;
  co_return signalled;
}

TEST(Stress, SignalAgainstTimeout) {
  std::atomic<int> living = 0;
  repeat([&](auto& random) {
    const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto wait = wait_for_event(event.get(), ticks(1 + random() % 20'000), counted(living));
    spin(static_cast<unsigned>(random() % 200'000));
    ::SetEvent(event.get());
    wait.get();
    EXPECT_EQ(living, 0);
  });
}

TEST(Stress, SubscriptionsComeAndGoDuringCancellation) {
  repeat([&](auto& random) {
    const cancellation_source source;
    const auto token = source.token();
    std::atomic<int> calls = 0;
    const auto steps = static_cast<unsigned>(random() % 2000);
    std::thread canceller([&] {
      spin(steps);
      source.cancel();
    });
    const auto count = [&calls] { ++calls; };
    try {
      for (int i = 0; i < 1000; ++i) {
        const cancellation_subscription first(token, count);
        const cancellation_subscription second(token, count);
      }
    } catch (const operation_cancelled&) {
    }
    canceller.join();
    EXPECT_LE(calls, 2);
  });
}

future<void> pass_on(future<int> from, std::atomic<int>& sum, counted) {
  const int value = co_await from;
  sum += value;
}

TEST(Stress, CompletionAgainstAwaitAndAbandonment) {
  std::atomic<int> living = 0;
  std::atomic<int> sum = 0;
  const int rounds = repeat([&](auto& random) {
    promise<int> promised;
    auto result = promised.get_future();
    const auto steps = static_cast<unsigned>(random() % 500);
    std::thread completer([&] {
      spin(steps);
      promised.set_value(1);
    });
    static_cast<void>(pass_on(std::move(result), sum, counted(living)));
    completer.join();
    EXPECT_EQ(living, 0);
  });
  EXPECT_EQ(sum, rounds);
}

future<int> hop(int hops, counted) {
  for (int i = 0; i < hops; ++i)
    co_await resume_background();
  co_return hops;
}

// The blocked thread leaves its frame the moment it is woken.
TEST(Stress, BlockingWaitAgainstCompletion) {
  std::atomic<int> living = 0;
  repeat([&](auto& random) {
    const auto hops = static_cast<int>(random() % 4);
    const auto hopping = hop(hops, counted(living));
    spin(static_cast<unsigned>(random() % 4000));
    EXPECT_EQ(hopping.get(), hops);
    EXPECT_EQ(living, 0);
  });
}

}  // namespace
}  // namespace ostra
