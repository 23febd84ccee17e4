// The copy of the log on the screen, which may be slow or stand still (a console in which somebody
// selects text, a pipe that nobody reads) without holding up the log file or anybody who logs.
#pragma once

#include <memory>
#include <string>

#include "async/future.h"
#include "log/line_queue.h"
#include "platform/win32.h"

namespace logging {

// Prints on a pool thread, one line after another in the order of write(). The queue belongs to the
// printing too: a screen that stands still keeps it and a thread until the process ends.
//
// In place of lines that were left out because too many waited, the screen shows "(123 lines are not shown)".
class screen_copy {
 public:
  // Throws std::bad_alloc or hresult_error.
  screen_copy() : printing_(print_lines(lines_)) {}
  screen_copy(const screen_copy&) = delete;
  screen_copy& operator=(const screen_copy&) = delete;
  ~screen_copy() { lines_->close(); }

  // Never blocks. Throws std::bad_alloc.
  void write(std::wstring line) { lines_->push({std::move(line)}); }

  // Takes no more lines, and blocks until all have been printed, for at most `patience`
  // milliseconds; true when they have been. To be called once.
  bool finish(DWORD patience);

 private:
  static ostra::future<void> print_lines(std::shared_ptr<line_queue> lines);

  const std::shared_ptr<line_queue> lines_ = std::make_shared<line_queue>();
  const ostra::future<void> printing_;
};

}  // namespace logging
