// The conditional sections open at a point in a pattern.
#pragma once

#include <bitset>
#include <cstddef>
#include <vector>

namespace tfmt::details {

// Holds up to 128 nested sections in place; deeper ones go to the heap.
class condition_stack {
 public:
  // True while the condition of any open section is false.
  [[nodiscard]] bool suppressed() const noexcept { return false_entries_ != 0; }

  void push(bool condition);
  // Both throw bad_extended_format_string when no section is open.
  void pop() { take(); }
  void invert_top() { push(!take()); }

 private:
  bool take();

  std::bitset<128> in_place_;
  std::vector<bool> overflow_;
  std::size_t size_ = 0;
  std::size_t false_entries_ = 0;
};

}  // namespace tfmt::details
