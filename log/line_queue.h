// Lines that wait to be written, in a bounded amount of memory.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace logging {

// The lines that the writer cannot keep up with are left out, and counted: a gap, which comes out
// of the queue in their place. Once one line has been left out, so are all others until the queue
// is empty, so that gaps are few and long; the writer is busy all the while and no slower for it.
//
// Line is a struct with a string `text`, and a std::size_t `left_out`, which is 0 but in a gap.
// Not synchronised.
template <class Line>
class line_queue {
 public:
  // What waits occupies at most so many bytes, text and structs.
  static constexpr std::size_t kMostBytes = 4 * 1024 * 1024;

  // Throws std::bad_alloc; then the line is lost.
  void push(Line line) {
    if (left_out_ != 0 || size_of(line) > kMostBytes - bytes_) {
      ++left_out_;
      return;
    }
    const std::size_t size = size_of(line);
    lines_.push_back(std::move(line));
    bytes_ += size;
  }

  // The next line, or the gap, which has no text; false when the queue is empty.
  [[nodiscard]] bool take(Line& line) noexcept {
    if (lines_.empty()) {
      line = {};
      line.left_out = std::exchange(left_out_, 0);
      return line.left_out != 0;
    }
    line = std::move(lines_.front());
    lines_.pop_front();
    bytes_ -= size_of(line);
    return true;
  }

  [[nodiscard]] bool empty() const noexcept { return lines_.empty() && left_out_ == 0; }

  void clear() noexcept {
    lines_.clear();
    bytes_ = 0;
    left_out_ = 0;
  }

 private:
  static std::size_t size_of(const Line& line) noexcept {
    return sizeof(Line) + line.text.size() * sizeof(wchar_t);
  }

  std::deque<Line> lines_;
  std::size_t bytes_ = 0;
  std::size_t left_out_ = 0;  // since the last of lines_ came
};

}  // namespace logging
