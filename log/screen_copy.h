// The copy of the log on the screen, which may be slow or stand still (a console in which somebody
// selects text, a pipe that nobody reads) without holding up the log file or anybody who logs.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "async/background.h"
#include "async/srw_lock.h"
#include "log/line_queue.h"

namespace logging {

// Prints on a pool thread, one line after another in the order of write(). Owned by the logger, and
// by the printing itself while there is something to print: a screen that stands still keeps the
// object and its thread until the process ends.
//
// At most line_queue::kMostBytes wait. Where lines are missing because of that, the screen shows
// "(123 lines are not shown)".
class screen_copy final : public std::enable_shared_from_this<screen_copy>,
                          private ostra::background_call {
 public:
  // Never blocks. Throws std::bad_alloc.
  void write(std::wstring line);

  // Blocks until all lines have been printed, for at most `patience` milliseconds; true when they
  // have been.
  bool finish(DWORD patience) noexcept;

 private:
  struct screen_line {
    std::wstring text;
    std::size_t left_out = 0;
  };

  void run() noexcept override;
  [[nodiscard]] bool take(screen_line& line) noexcept;

  // Guarded by lock_. printing_ is set from the first line's coming until the queue is empty again.
  ostra::srw_lock lock_;
  ostra::condition_variable finished_;
  line_queue<screen_line> lines_;
  std::shared_ptr<screen_copy> printing_;
};

}  // namespace logging
