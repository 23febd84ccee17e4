#include "client/line/retry.h"

#include <gtest/gtest.h>

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

TEST(GrowingPause, DoublesUpToALimitAndStartsAgainAfterASessionThatHeld) {
  growing_pause pauses;
  for (const int expected : {250, 500, 1000, 2000, 4000, 8000, 8000})
    EXPECT_EQ(pauses.next(milliseconds::zero()), milliseconds(expected));
  EXPECT_EQ(pauses.next(growing_pause::kMaxPause), milliseconds(8000));
  EXPECT_EQ(pauses.next(growing_pause::kMaxPause + milliseconds(1)), milliseconds(250));
}

}  // namespace
}  // namespace tarnwheel::client
