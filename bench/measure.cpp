#include "bench/measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "platform/win32.h"

#include <psapi.h>  // needs <windows.h> before it

namespace bench {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Seconds(const std::function<void()>& action) {
  const double start = Now();
  action();
  return Now() - start;
}

double MemoryInUse(const system_test::Program& program) {
  PROCESS_MEMORY_COUNTERS counters = {};
  ::K32GetProcessMemoryInfo(program.Process(), &counters, sizeof counters);
  return static_cast<double>(counters.PagefileUsage);
}

Spread SpreadOf(std::vector<double> samples) {
  std::ranges::sort(samples);
  const auto last = samples.size() - 1;
  return {samples[last / 4], samples[samples.size() / 2], samples[last - last / 4]};
}

void PrintHeading(const std::string& text) {
  std::printf("\n%s\n", text.c_str());
  std::fflush(stdout);
}

void PrintRow(const std::string& name, const std::string& unit, const std::vector<double>& samples,
              std::optional<Goal> goal) {
  const Spread spread = SpreadOf(samples);
  std::printf("  %-44s %10.2f %-9s (%.2f to %.2f)", name.c_str(), spread.median, unit.c_str(),
              spread.lower, spread.upper);
  if (goal) {
    const bool at_most = goal->direction == Goal::kAtMost;
    const bool met = at_most ? spread.median <= goal->limit : spread.median >= goal->limit;
    std::printf("  goal %s %.2f: %s", at_most ? "<=" : ">=", goal->limit, met ? "met" : "MISSED");
  }
  std::printf("\n");
  std::fflush(stdout);
}

void Comparison::Run(const std::function<double()>& ours,
                     const std::function<double()>& theirs) const {
  std::vector<double> our_samples, their_samples, ratios;
  ours();
  theirs();
  for (int round = 0; round < rounds; ++round) {
    our_samples.push_back(ours());
    their_samples.push_back(theirs());
    ratios.push_back(our_samples.back() / their_samples.back());
  }
  PrintRow(name, unit, our_samples);
  PrintRow("  " + yardstick, unit, their_samples);
  PrintRow("  ratio", "", ratios, goal);
}

}  // namespace bench
