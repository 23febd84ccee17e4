#include "async/cancellation.h"

#include <functional>

#include "async/published.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using subscription = cancellation_subscription<std::function<void()>>;

TEST(Cancellation, RunsEveryCallbackOnceOnAnotherThread) {
  cancellation_token token;
  std::atomic<bool> requested = false;
  std::atomic<int> calls = 0;
  const auto count = [&, caller = std::this_thread::get_id()] {
    calls += std::this_thread::get_id() == caller ? 100 : 1;
  };
  {
    const cancellation_source source;
    token = source.token(&requested);
    const subscription first(token, count);
    const subscription second(source.token(), count);
    const subscription without_a_callback(source.token(), {});  // throws, which holds up nobody
    EXPECT_FALSE(token.is_cancelled() || requested);
    source.cancel();
    source.cancel();
    EXPECT_TRUE(testing_support::eventually([&] { return calls == 2; }));
    EXPECT_THROW(subscription(source.token(), count), operation_cancelled);
  }
  EXPECT_TRUE(token.is_cancelled() && requested);
}

TEST(Cancellation, CascadesToLinkedSourcesThatStillExist) {
  const cancellation_source parent, child, grandchild;
  parent.link(cancellation_source());
  parent.link(child);
  child.link(grandchild);
  parent.cancel();
  EXPECT_TRUE(child.is_cancelled() && grandchild.is_cancelled());
}

TEST(Cancellation, StressOfSubscriptionsTokensAndLinks) {
  testing_support::stress([](auto& random) {
    const cancellation_source source;
    const auto token = source.token();
    std::atomic<int> calls = 0;
    const auto use = [&] {
      try {
        for (int i = 0; i < 300; ++i) {
          const cancellation_source linked;
          source.link(linked);
          const subscription first(token, [&] { ++calls; });
          const subscription second(source.token(), [&] { ++calls; });
        }
      } catch (const operation_cancelled&) {
      }
    };
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
  std::atomic<bool> done = false;
  const std::jthread user([&] {
    while (!done)
      pointer.use([](int& object) { EXPECT_EQ(object, 1); });
  });
  for (int round = 0; round < 1000; ++round) {
    int object = 1;
    pointer.publish(object);
    std::this_thread::yield();
    pointer.withdraw();
    object = 2;
  }
  done = true;
}

}  // namespace
}  // namespace ostra
