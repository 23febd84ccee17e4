// The screen of a terminal.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "async/future.h"
#include "async/work_queue.h"

namespace tarnwheel::client {

// Writes to the console of standard output on pool threads, so that a console paused by the user
// does not block the callers. Any thread.
class terminal_screen {
 public:
  // UTF-8 text with its escape sequences, or hexadecimal columns.
  enum class view { text, hex };

  explicit terminal_screen(view kind);

  // Completes when the bytes are shown, or dropped.
  ostra::future<void> show(std::vector<std::byte> bytes);

  // The user's keystrokes, as they are sent to the line.
  void echo(std::vector<std::byte> bytes);

  // Shows a message of this program's own: a line, or several with CR LF between them.
  void note(std::wstring_view text);

  // Shows text of this program's own unchanged.
  void print(std::wstring_view text);

  // Discards whatever is not shown yet.
  void close() { work_.close(); }

 private:
  struct state;

  const std::shared_ptr<state> state_;
  ostra::work_queue work_;
};

}  // namespace tarnwheel::client
