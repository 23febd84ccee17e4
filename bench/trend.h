// Whether a series of figures keeps rising.
#pragma once

#include <cstddef>
#include <span>

namespace bench {

// Fits a line through the second half of `samples`, taken at equal intervals (the first half is for
// caches, pools and heaps to fill), and compares it with the noise around it. True when the line
// rises over that half by more than `slack` and by more than three times the standard deviation of
// the samples from it. False with fewer than eight samples.
[[nodiscard]] bool Rises(std::span<const double> samples, double slack);

}  // namespace bench
