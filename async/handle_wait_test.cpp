#include "async/handle_wait.h"

#include <gtest/gtest.h>

#include "async/future.h"
#include "platform/unique_resource.h"

namespace ostra {
namespace {

future<bool> wait_for(HANDLE handle, ticks timeout) {
  handle_wait wait(handle, timeout);
  const bool signalled = co_await wait;
  co_return signalled;
}

TEST(HandleWait, TellsTheSignalFromTheTime) {
  const Tamrin::unique_handle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_FALSE(wait_for(event.get(), std::chrono::milliseconds(1)).get());
  const auto waiting = wait_for(event.get(), std::chrono::hours(1));
  ::SetEvent(event.get());
  EXPECT_TRUE(waiting.get() && wait_for(event.get(), ticks::zero()).get());
}

}  // namespace
}  // namespace ostra
