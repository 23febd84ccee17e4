// A position in a pattern that only moves forward and never past the pattern's end.
#pragma once

#include <concepts>
#include <cstddef>
#include <string_view>

#include "format/exceptions.h"

namespace tfmt::details {

class cursor {
 public:
  explicit cursor(std::wstring_view text) noexcept : rest_(text) {}

  [[nodiscard]] bool at_end() const noexcept { return rest_.empty(); }
  [[nodiscard]] std::wstring_view rest() const noexcept { return rest_; }

  // Both throw bad_extended_format_string when the pattern ends too early.
  wchar_t take() { return take(1).front(); }
  std::wstring_view take(std::size_t count) {
    if (rest_.size() < count)
      throw bad_extended_format_string();
    const auto taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  bool take_if(wchar_t wanted) noexcept {
    if (rest_.empty() || rest_.front() != wanted)
      return false;
    rest_.remove_prefix(1);
    return true;
  }

  [[nodiscard]] bool at_digit() const noexcept {
    return !rest_.empty() && rest_.front() >= L'0' && rest_.front() <= L'9';
  }

  // Takes the decimal digits at this position, modulo the range of T; 0 when there are none.
  template <std::unsigned_integral T>
  T take_number() noexcept {
    T number = 0;
    for (; at_digit(); rest_.remove_prefix(1))
      number = static_cast<T>(number * 10u + static_cast<unsigned>(rest_.front() - L'0'));
    return number;
  }

 private:
  std::wstring_view rest_;
};

}  // namespace tfmt::details
