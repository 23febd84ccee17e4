#include "async/within.h"

#include <gtest/gtest.h>

#include <thread>

#include "async/test_support.h"

namespace ostra {
namespace {

using namespace std::chrono_literals;
using test::code_of;

constexpr auto kTimeout = static_cast<HRESULT>(0x800705B4);

TEST(Within, CallThatNeverCompletesEndsAtItsLimit) {
  const promise<void> call;
  EXPECT_EQ(code_of([&] { within(call.get_future(), 10ms).get(); }), kTimeout);
}

TEST(Within, CallThatCompletesFirstKeepsItsOutcome) {
  promise<int> succeeds;
  promise<void> fails;
  const auto value = within(succeeds.get_future(), 1h);
  const auto failure = within(fails.get_future(), 1h);
  succeeds.set_value(7);
  fails.set_exception(std::make_exception_ptr(operation_cancelled()));
  EXPECT_EQ(value.get(), 7);
  EXPECT_THROW(failure.get(), operation_cancelled);
}

TEST(Within, CallAndLimitAtTheSameTimeGiveOneOutcome) {
  for (int round = 0; round < 100; ++round) {
    promise<void> call;
    const auto limited = within(call.get_future(), 1ms);
    std::this_thread::sleep_for(1ms);
    call.set_value();
    const HRESULT outcome = code_of([&] { limited.get(); });
    EXPECT_TRUE(outcome == S_OK || outcome == kTimeout);
  }
}

}  // namespace
}  // namespace ostra
