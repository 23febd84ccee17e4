// Shared by the tests of async/ and of the libraries built on it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "async/errors.h"
#include "async/future.h"

namespace testing_support {

// Polls `condition`; true if it holds within ten seconds.
template <class Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  return condition();
}

// The code of the exception that `action` throws; S_OK if it throws none.
template <class Action>
HRESULT code_of(Action action) {
  try {
    static_cast<void>(action());
  } catch (...) {
    return ostra::details::current_hresult();
  }
  return S_OK;
}

// Waits for `operation` and returns its outcome as code_of does.
template <class T>
HRESULT outcome_of(const ostra::future<T>& operation) {
  return code_of([&] { return operation.get(); });
}

// Calls `round(random)` for TARNWHEEL_STRESS_SECONDS, half a second by default, or until a check
// fails.
template <class Round>
void stress(Round round) {
  const char* const text = std::getenv("TARNWHEEL_STRESS_SECONDS");
  const auto duration = std::chrono::milliseconds(text != nullptr ? 1000 * std::atoi(text) : 500);
  std::minstd_rand random(12345);
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure())
    round(random);
}

// Busy-waits, without yielding the processor.
inline void spin(std::uint_fast32_t steps) {
  static std::atomic<std::uint_fast32_t> sink = 0;
  for (std::uint_fast32_t i = 0; i < steps; ++i)
    sink.store(i, std::memory_order_relaxed);
}

}  // namespace testing_support
