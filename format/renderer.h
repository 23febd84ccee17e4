// Renders a pattern's segments as text.
#pragma once

#include <span>
#include <string>

#include "format/argument.h"
#include "format/condition_stack.h"
#include "format/segment.h"

namespace tfmt::details {

// Appends segments to the output. The arguments and the output must outlive the renderer.
class renderer {
 public:
  renderer(std::wstring& output, std::span<const argument> arguments) noexcept
      : output_(output), arguments_(arguments) {}

  // Throws bad_extended_format_string when a placeholder, suppressed or not, selects a missing
  // argument, when a condition is not a bool, or when a section is closed or inverted that is not
  // open. A section left open ends with the pattern.
  void add(const segment& part);

 private:
  std::wstring& output_;
  const std::span<const argument> arguments_;
  condition_stack conditions_;
};

}  // namespace tfmt::details
