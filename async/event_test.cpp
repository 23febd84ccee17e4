#include "async/event.h"

#include <gtest/gtest.h>

#include <thread>

namespace ostra {
namespace {

TEST(AsyncEvent, HoldsWaitersWhileItIsReset) {
  async_event event(true);
  EXPECT_TRUE(event.wait().is_complete());
  event.reset();
  const auto first = event.wait();
  const auto second = event.wait();
  EXPECT_FALSE(first.is_complete());
  event.set();
  EXPECT_TRUE(first.is_complete() && second.is_complete() && event.wait().is_complete());
}

TEST(AsyncEvent, WaiterThatComesWithTheSignalIsReleased) {
  for (int round = 0; round < 200; ++round) {
    async_event event(false);
    std::thread setter([&event] { event.set(); });
    event.wait().get();
    setter.join();
  }
}

}  // namespace
}  // namespace ostra
