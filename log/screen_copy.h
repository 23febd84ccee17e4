// The copy of the log on the screen. A slow or blocked screen (a console in which text is being
// selected, a pipe that is not read) holds up neither the log file nor the callers of the logger.
#pragma once

#include <memory>
#include <string>

#include "async/future.h"
#include "log/line_queue.h"
#include "platform/win32.h"

namespace logging {

// Prints on a pool thread, one line at a time in the order of write(). The printing coroutine
// shares ownership of the queue: a screen that stays blocked keeps it and a thread until the
// process ends.
//
// When too many lines wait, some are left out, and the screen shows "(123 lines are not shown)" in
// their place.
class screen_copy {
 public:
  // Throws std::bad_alloc or hresult_error.
  screen_copy() : printing_(print_lines(lines_)) {}
  screen_copy(const screen_copy&) = delete;
  screen_copy& operator=(const screen_copy&) = delete;
  ~screen_copy() { lines_->close(); }

  // Never blocks. Throws std::bad_alloc.
  void write(std::wstring line) { lines_->push({std::move(line)}); }

  // Accepts no more lines and blocks until all have been printed, for at most `patience`
  // milliseconds; true when they have been. Called at most once.
  bool finish(DWORD patience);

 private:
  static ostra::future<void> print_lines(std::shared_ptr<line_queue> lines);

  const std::shared_ptr<line_queue> lines_ = std::make_shared<line_queue>();
  const ostra::future<void> printing_;
};

}  // namespace logging
