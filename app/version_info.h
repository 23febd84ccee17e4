// The product version of this program, from its own version resource.
#pragma once

namespace tarnwheel {

struct product_version {
  unsigned major = 0;
  unsigned minor = 0;
  unsigned revision = 0;
  unsigned build = 0;
};

// All zero when the program has no such resource.
[[nodiscard]] product_version read_product_version();

}  // namespace tarnwheel
