// Measures two ways of doing one thing in turn, and prints the results.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/program.h"

namespace bench {

// The bare server's pipe.
inline constexpr wchar_t kBarePipe[] = LR"(\\.\pipe\tarnwheel_bench_bare)";

// Seconds since an arbitrary moment in the past.
[[nodiscard]] double Now();

// The seconds that `action` takes.
[[nodiscard]] double Seconds(const std::function<void()>& action);

// Bytes of private memory that the process has committed.
[[nodiscard]] double MemoryInUse(const system_test::Program& program);

// A quarter of the samples lies below `lower`, a quarter above `upper`.
struct Spread {
  double lower;
  double median;
  double upper;
};
[[nodiscard]] Spread SpreadOf(std::vector<double> samples);

// The goal for a figure; printed beside it as met or missed.
struct Goal {
  enum Direction { kAtMost, kAtLeast } direction;
  double limit;
};

// One row of the report: the median and, in brackets, the quartiles.
void PrintRow(const std::string& name, const std::string& unit, const std::vector<double>& samples,
              std::optional<Goal> goal = std::nullopt);
void PrintHeading(const std::string& text);

// Takes samples of both sides in turn, after one of each that is discarded, and prints three rows:
// ours, the yardstick, and the ratio of each pair. The machine's speed drifts; the ratio hardly
// does.
struct Comparison {
  std::string name;
  std::string unit;
  std::string yardstick;
  std::optional<Goal> goal = std::nullopt;  // for the ratio ours / yardstick
  int rounds = 15;

  void Run(const std::function<double()>& ours, const std::function<double()>& theirs) const;
};

}  // namespace bench
