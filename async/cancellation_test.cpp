#include "async/cancellation.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "async/test_support.h"

namespace ostra {
namespace {

using subscription = cancellation_subscription<std::function<void()>>;
using test::eventually;

TEST(Cancellation, RunsEveryCallbackOnceOnAnotherThread) {
  const cancellation_source source;
  const auto token = source.token();
  std::atomic<int> calls = 0;
  std::atomic<bool> same_thread = false;
  const auto caller = ::GetCurrentThreadId();
  const auto count = [&] {
    if (::GetCurrentThreadId() == caller)
      same_thread = true;
    ++calls;
  };
  {
    const subscription first(token, count);
    const subscription second(source.token(), count);
    source.cancel();
    source.cancel();
    EXPECT_TRUE(eventually([&] { return calls == 2; }));
  }
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(same_thread);
  EXPECT_TRUE(token.is_cancelled());
}

TEST(Cancellation, SubscribingAfterwardsThrowsAndRegistersNothing) {
  const cancellation_source source;
  const auto token = source.token();
  source.cancel();
  bool called = false;
  EXPECT_THROW(subscription(token, [&] { called = true; }), operation_cancelled);
  EXPECT_THROW(subscription(source.token(), [&] { called = true; }), operation_cancelled);
  EXPECT_THROW(token.throw_if_cancelled(), operation_cancelled);
  EXPECT_FALSE(called);
}

TEST(Cancellation, CascadesToLinkedSourcesThatStillExist) {
  const cancellation_source parent;
  const cancellation_source child;
  const cancellation_source grandchild;
  auto gone = std::make_unique<cancellation_source>();
  parent.link(*gone);
  parent.link(child);
  child.link(grandchild);
  gone.reset();
  parent.cancel();
  EXPECT_TRUE(child.is_cancelled());
  EXPECT_TRUE(grandchild.is_cancelled());

  const cancellation_source late;
  parent.link(late);
  parent.cancel();
  EXPECT_FALSE(late.is_cancelled());
}

TEST(Cancellation, SetsTheFlagOfItsTokens) {
  const cancellation_source source;
  std::atomic<bool> requested = false;
  const auto token = source.token(&requested);
  EXPECT_FALSE(requested);
  source.cancel();
  EXPECT_TRUE(requested);
}

TEST(Cancellation, DestructorWaitsForACallbackThatHasBegun) {
  const cancellation_source source;
  const Tamrin::unique_handle go(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::atomic<bool> begun = false;
  std::atomic<bool> finished = false;
  std::optional<subscription> waiting(std::in_place, source.token(), [&] {
    begun = true;
    ::WaitForSingleObject(go.get(), 5000);
    finished = true;
  });
  source.cancel();
  ASSERT_TRUE(eventually([&] { return begun.load(); }));
  std::thread release([&] { ::SetEvent(go.get()); });
  waiting.reset();
  EXPECT_TRUE(finished);
  release.join();
}

TEST(Cancellation, CallbackThatThrowsDoesNotHoldUpItsOwner) {
  const cancellation_source source;
  {
    const subscription empty(source.token(), std::function<void()>());
    source.cancel();
  }
  EXPECT_TRUE(source.is_cancelled());
}

TEST(Cancellation, TokenOutlivesItsSource) {
  cancellation_token token;
  EXPECT_FALSE(token.is_cancelled());
  {
    const cancellation_source source;
    token = source.token();
    source.cancel();
  }
  EXPECT_TRUE(token.is_cancelled());
}

}  // namespace
}  // namespace ostra
