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
  EXPECT_EQ(pauses.next(milliseconds(10)), milliseconds(500));
}

struct Attempts : testing::Test {
  // Runs sessions that fail in these ways, one after another; the one behind them succeeds. True
  // when run() returns, false when it throws.
  bool Run(bool again, const std::vector<failure>& failures, std::size_t patience = 100) {
    attempts sessions(again, [&](milliseconds) { return ++pauses > patience; });
    try {
      sessions.run([&] {
        if (sessions_run++ < failures.size())
          throw client_error(L"x", E_FAIL, failures[sessions_run - 1]);
      });
      return true;
    } catch (const client_error& error) {
      EXPECT_EQ(error.kind(), failures[sessions_run - 1]);
      return false;
    }
  }

  std::size_t sessions_run = 0;
  std::size_t pauses = 0;
};

TEST_F(Attempts, WithoutRetryTheFirstFailureEnds) {
  EXPECT_FALSE(Run(false, {failure::connection}));
  EXPECT_EQ(sessions_run, 1u);
  EXPECT_EQ(pauses, 0u);
}

TEST_F(Attempts, WhatMayPassIsTriedAgain) {
  EXPECT_TRUE(Run(true, {failure::connection, failure::refused, failure::device}));
  EXPECT_EQ(sessions_run, 4u);
  EXPECT_EQ(pauses, 3u);
}

TEST_F(Attempts, AMistakeOfTheUserDoesNotPass) {
  EXPECT_FALSE(Run(true, {failure::connection, failure::usage}));
  EXPECT_EQ(sessions_run, 2u);
}

TEST_F(Attempts, TheUserMayHaveEnough) {
  EXPECT_FALSE(Run(true, {failure::connection, failure::device, failure::device}, 1));
  EXPECT_EQ(sessions_run, 2u);
}

}  // namespace
}  // namespace tarnwheel::client
