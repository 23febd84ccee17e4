#include "client/line/retry.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

TEST(GrowingPause, DoublesUpToALimitAndStartsAgainAfterASessionThatHeld) {
  growing_pause pauses;
  for (const int expected : {250, 500, 1000, 2000, 4000, 8000, 8000})
    EXPECT_EQ(pauses.next(milliseconds::zero()), milliseconds(expected));
  EXPECT_EQ(pauses.next(growing_pause::kLongest), milliseconds(8000));
  EXPECT_EQ(pauses.next(growing_pause::kLongest + milliseconds(1)), milliseconds(250));
}

TEST(Attempts, WhatMayPassIsTriedAgainWhileTheUserWants) {
  using enum failure;
  const struct {
    bool again;
    std::vector<failure> failures;  // of the sessions, one after another; the next one succeeds
    std::size_t patience;           // in pauses, of which those of no length do not count
    bool succeeds;
    std::size_t sessions;
  } rows[] = {
      {false, {connection}, 9, false, 1},
      {true, {connection, refused, device}, 9, true, 4},
      {true, {connection, usage}, 9, false, 2},
      {true, {connection, device, device}, 1, true, 2},  // the user's wish is no failure
  };
  for (const auto& row : rows) {
    std::size_t pauses = 0, sessions = 0;
    attempts tried(row.again, [&](milliseconds time) {
      return time > milliseconds::zero() && ++pauses > row.patience;
    });
    const auto run = [&] {
      tried.run([&] {
        if (sessions++ < row.failures.size())
          throw client_error(L"x", E_FAIL, row.failures[sessions - 1]);
      });
    };
    if (row.succeeds)
      EXPECT_NO_THROW(run());
    else
      EXPECT_THROW(run(), client_error);
    EXPECT_EQ(sessions, row.sessions);
  }
}

}  // namespace
}  // namespace tarnwheel::client
