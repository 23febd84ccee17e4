// Writes the text of a pattern's segments.
#pragma once

#include <span>
#include <string>

#include "format/argument.h"
#include "format/condition_stack.h"
#include "format/segment.h"

namespace tfmt::details {

// Appends one segment after another. The arguments and the output must outlive it.
class renderer {
 public:
  renderer(std::wstring& output, std::span<const argument> arguments) noexcept
      : output_(output), arguments_(arguments) {}

  // Throws bad_extended_format_string when a placeholder, suppressed or not, selects an argument
  // that is not there, when a condition is not a bool, or when a section is closed or inverted that
  // was never opened. A section left open ends with the pattern.
  void add(const segment& part);

 private:
  std::wstring& output_;
  const std::span<const argument> arguments_;
  condition_stack conditions_;
};

}  // namespace tfmt::details
