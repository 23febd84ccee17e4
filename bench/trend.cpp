#include "bench/trend.h"

#include <cmath>

namespace bench {
namespace {

constexpr std::size_t kFewest = 8;
constexpr double kDeviations = 3;

struct Line {
  double slope;      // per sample
  double deviation;  // of the samples from the line
};

// Least squares.
Line FitLine(std::span<const double> samples) {
  const auto count = static_cast<double>(samples.size());
  const double middle = (count - 1) / 2;
  double sum = 0, products = 0, squares = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double x = static_cast<double>(i) - middle;
    sum += samples[i];
    products += x * samples[i];
    squares += x * x;
  }
  const double slope = products / squares, mean = sum / count;
  double residues = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double residue = samples[i] - (mean + slope * (static_cast<double>(i) - middle));
    residues += residue * residue;
  }
  return {slope, std::sqrt(residues / count)};
}

}  // namespace

bool Rises(std::span<const double> samples, double slack) {
  if (samples.size() < kFewest)
    return false;
  const auto half = samples.subspan(samples.size() / 2);
  const Line line = FitLine(half);
  const double rise = line.slope * static_cast<double>(half.size() - 1);
  return rise > slack && rise > kDeviations * line.deviation;
}

}  // namespace bench
