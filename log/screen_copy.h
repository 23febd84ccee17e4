// The copy of the log on the screen, which may be slow or stand still (a console in which somebody
// selects text, a pipe that nobody reads) without holding up the log file or anybody who logs.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "async/background.h"
#include "async/srw_lock.h"

namespace logging {

// Prints on a pool thread, one line after another in the order of write(). Owned by the logger, and
// by the printing itself while there is something to print: a screen that stands still keeps the
// object and its thread until the process ends.
class screen_copy final : public std::enable_shared_from_this<screen_copy>,
                          private ostra::background_call {
 public:
  // While so many lines wait, further ones are not shown; the log file has them.
  static constexpr std::size_t kMostLines = 10'000;

  // Never blocks. Throws std::bad_alloc.
  void write(std::wstring line);

  // Blocks until all lines have been printed, for at most `patience` milliseconds; true when they
  // have been.
  bool finish(DWORD patience) noexcept;

 private:
  void run() noexcept override;
  [[nodiscard]] bool take(std::wstring& line) noexcept;

  // Guarded by lock_. printing_ is set from the first line's coming until the queue is empty again.
  ostra::srw_lock lock_;
  ostra::condition_variable finished_;
  std::deque<std::wstring> lines_;
  std::shared_ptr<screen_copy> printing_;
};

}  // namespace logging
