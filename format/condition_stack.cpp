#include "format/condition_stack.h"

#include "format/exceptions.h"

namespace tfmt::details {

void condition_stack::push(bool condition) {
  if (size_ < in_place_.size())
    in_place_[size_] = condition;
  else
    overflow_.push_back(condition);
  ++size_;
  if (!condition)
    ++false_entries_;
}

bool condition_stack::take() {
  if (size_ == 0)
    throw bad_extended_format_string();
  --size_;
  bool condition = false;
  if (size_ < in_place_.size()) {
    condition = in_place_[size_];
  } else {
    condition = overflow_.back();
    overflow_.pop_back();
  }
  if (!condition)
    --false_entries_;
  return condition;
}

}  // namespace tfmt::details
