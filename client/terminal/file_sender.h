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

// Asks for the file's name on the screen, then sends its bytes unchanged, as fast as the line takes
// them, and reports each tenth. A coroutine on the thread pool reads the file; all functions are
// called on the session's thread.
class file_sender {
 public:
  // `line` and `screen` must outlive this. `done` is called on any thread when a started file has
  // been sent or given up.
  file_sender(remote_line& line, terminal_screen& screen, std::function<void()> done)
      : line_(line), screen_(screen), done_(std::move(done)) {}

  // Starts asking for a name or, while a file is being sent, stops sending it.
  void toggle();

  // While it asks, keys edit the name: Enter accepts it, Escape cancels.
  [[nodiscard]] bool is_asking() const noexcept { return is_asking_; }
  void handle_key(std::wstring_view key);

  // True if a named file waits for start(). From start() until `done` is called nothing else may
  // write to the line.
  [[nodiscard]] bool is_named() const noexcept { return !is_asking_ && !name_.empty(); }
  void start();

  // Stops sending and waits for the end; call it after the line has been hung up.
  void finish();

 private:
  ostra::future<void> send(std::wstring path);
  ostra::future<void> send_bytes(HANDLE file, std::uint64_t size);

  remote_line& line_;
  terminal_screen& screen_;
  const std::function<void()> done_;

  // Used by the session's thread.
  bool is_asking_ = false;
  std::wstring name_;  // empty once the file is started
  ostra::future<void> sending_;

  std::atomic<bool> is_sending_ = false;
  std::atomic<bool> is_stopped_ = false;
};

}  // namespace tarnwheel::client
