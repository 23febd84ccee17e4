// A file that the user of a terminal sends to the line.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "async/future.h"
#include "client/line/remote_line.h"
#include "client/terminal/terminal_screen.h"

namespace tarnwheel::client {

// Asks for the file's name on the screen, then sends its bytes as they are, as fast as the line takes
// them, and tells of each tenth. Its own thread-pool coroutine reads the file; everything else is
// called by the session's thread.
class file_sender {
 public:
  // Both must outlive this. `done` is called on any thread when a file that was started has been sent
  // or given up.
  file_sender(remote_line& line, terminal_screen& screen, std::function<void()> done)
      : line_(line), screen_(screen), done_(std::move(done)) {}

  // Begins to ask for a name; while a file is being sent, ends that.
  void toggle();

  // While it asks, the keys are the name's: Enter ends it, Escape gives up.
  [[nodiscard]] bool asks() const noexcept { return asks_; }
  void strike(std::wstring_view key);

  // Says whether a file waits to be started, which may be done when nobody else writes to the line;
  // nobody else does until `done` is called.
  [[nodiscard]] bool is_named() const noexcept { return !asks_ && !name_.empty(); }
  void start();

  // Waits for its end; to be called when the line has been hung up.
  void finish();

 private:
  ostra::future<void> send(std::wstring path);
  ostra::future<void> send_bytes(HANDLE file, std::uint64_t size);

  remote_line& line_;
  terminal_screen& screen_;
  const std::function<void()> done_;

  // Used by the session's thread.
  bool asks_ = false;
  std::wstring name_;  // empty once the file is started
  ostra::future<void> sending_;

  std::atomic<bool> is_sending_ = false;
  std::atomic<bool> is_stopped_ = false;
};

}  // namespace tarnwheel::client
