#include "async/cancellation.h"

#include <functional>

#include "async/published.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using subscription = cancellation_subscription<std::function<void()>>;

TEST(Cancellation, RunsEveryCallbackOnceOnAnotherThreadIncludingThoseOfLinkedSources) {
  cancellation_token token;
  std::atomic<bool> requested = false;
  std::atomic<int> calls = 0;
  const auto count = [&, caller = std::this_thread::get_id()] {
    calls += std::this_thread::get_id() == caller ? 100 : 1;
  };
  {
    const cancellation_source parent, source, child;
    token = source.token(&requested);
    parent.link(cancellation_source());  // already destroyed
    parent.link(source);
    source.link(child);
    const subscription first(token, count), second(child.token(), count);
    const subscription without_a_callback(source.token(), {});  // throws, and delays no other
    EXPECT_FALSE(token.is_cancelled() || requested);
    parent.cancel();
    source.cancel();
    EXPECT_TRUE(testing_support::eventually([&] { return calls == 2; }));
    EXPECT_THROW(subscription(source.token(), count), operation_cancelled);
  }
  EXPECT_TRUE(token.is_cancelled() && requested);
}

TEST(Cancellation, StressOfSubscriptionsTokensAndLinks) {
  testing_support::stress([](auto& random) {
    const cancellation_source source;
    const auto token = source.token();
    std::atomic<int> calls = 0;
    const auto use_until_cancelled = [&] {
      for (int i = 0; i < 300; ++i) {
        const cancellation_source linked;
        source.link(linked);
        const subscription first(token, [&] { ++calls; });
        const subscription second(source.token(), [&] { ++calls; });
      }
    };
    const auto use = [&] { testing_support::code_of(use_until_cancelled); };
    const std::jthread other(use);
    const std::jthread canceller([&, steps = random() % 20'000] {
      testing_support::spin(steps);
      source.cancel();
    });
    use();
    EXPECT_LE(calls, 4);
  });
}

TEST(Published, ObjectIsUsedOnlyUntilItIsWithdrawn) {
  published<int> pointer;
  const std::jthread user([&](std::stop_token done) {
    while (!done.stop_requested())
      pointer.use([](int& object) { EXPECT_EQ(object, 1); });
  });
  for (int round = 0; round < 1000; ++round) {
    int object = 1;
    pointer.publish(object);
    std::this_thread::yield();
    pointer.withdraw();
    object = 2;
  }
}

}  // namespace
}  // namespace ostra
