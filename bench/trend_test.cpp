#include "bench/trend.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

namespace bench {
namespace {

constexpr double kSlack = 10;

struct Series {
  const char* name;
  std::function<double(int)> at;
  bool rises;
};

class Trend : public ::testing::TestWithParam<Series> {};

TEST_P(Trend, IsToldFromNoise) {
  std::mt19937 generator(7);
  std::uniform_real_distribution<double> noise(-5, 5);
  std::vector<double> samples;
  for (int i = 0; i < 120; ++i)
    samples.push_back(100 + GetParam().at(i) + noise(generator));
  EXPECT_EQ(Rises(samples, kSlack), GetParam().rises);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Trend,
    ::testing::Values(Series{"Flat", [](int) { return 0; }, false},
                      Series{"OneASample", [](int i) { return i; }, true},
                      Series{"OneInTwo", [](int i) { return i / 2; }, true},
                      Series{"LessThanTheSlack", [](int i) { return i * 0.1; }, false},
                      Series{"Falls", [](int i) { return -i; }, false},
                      Series{"RisesToALevel", [](int i) { return i < 50 ? i : 50; }, false},
                      Series{"SwingsWidely", [](int i) { return i % 7 * 100; }, false}),
    [](const auto& param_info) { return param_info.param.name; });

}  // namespace
}  // namespace bench
