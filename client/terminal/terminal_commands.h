// The commands of a terminal that act on the line.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "async/future.h"
#include "async/timer.h"
#include "client/line/remote_line.h"
#include "client/terminal/terminal_keys.h"
#include "client/terminal/terminal_screen.h"

namespace tarnwheel::client {

// Used by one thread. run() does not wait: each command goes on by itself and reports its outcome
// on the screen.
class terminal_commands {
 public:
  // `line` and `screen` must outlive this. `format` is the line's setting, such as "8N1".
  terminal_commands(remote_line& line, terminal_screen& screen, std::wstring format)
      : line_(line), screen_(screen), format_(std::move(format)) {}

  // Ignores commands that do not act on the line, and a break while one is being sent.
  void run(key_command command);

  // Waits for the commands in progress; call it after the line has been hung up, which ends them.
  void finish();

 private:
  struct output_line {
    std::wstring_view name;
    ostra::future<void> (line_controls::*set)(bool);
    std::atomic<bool> on;

    [[nodiscard]] std::wstring state() const;
  };

  ostra::future<void> send_break();
  ostra::future<void> toggle(output_line& toggled);
  ostra::future<void> show_state();
  ostra::future<std::wstring> rate();
  ostra::future<std::wstring> modem_lines();
  ostra::future<std::wstring> errors();

  remote_line& line_;
  terminal_screen& screen_;
  const std::wstring format_;
  ostra::async_timer break_time_;
  output_line dtr_{L"DTR", &line_controls::set_dtr, true};
  output_line rts_{L"RTS", &line_controls::set_rts, true};
  std::vector<ostra::future<void>> under_way_;
  ostra::future<void> break_;
};

}  // namespace tarnwheel::client
