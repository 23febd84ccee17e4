// A remote line operated from the keyboard and the screen.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "async/future.h"
#include "client/line/line_session.h"
#include "client/line/line_text.h"
#include "client/terminal/capture_file.h"
#include "client/terminal/file_sender.h"
#include "client/terminal/terminal_commands.h"
#include "client/terminal/terminal_keys.h"
#include "client/terminal/terminal_screen.h"
#include "console/interrupt.h"

namespace tarnwheel::client {

// The user's options for the terminal.
struct terminal_settings {
  bool echo = false;
  std::string_view newline = "\r";  // the bytes of Enter
  bool inserts_cr = false;          // before an LF without one; not in the log
  bool stamps = false;              // on the screen and in the log
  std::wstring format;              // of the line, such as "8N1"
};

// Sends the user's keys to the line and shows the bytes that it receives. Constructed and run on
// one thread.
class terminal_session final : public line_session {
 public:
  // Opens the line; throws client_error. `screen` and `capture` must outlive this.
  terminal_session(const line_address& address, terminal_screen& screen, capture_file& capture,
                   const terminal_settings& settings)
      : screen_(screen), capture_(capture), settings_(settings), line_(address) {}

  [[nodiscard]] remote_line& line() noexcept { return line_; }

  // Returns when the user leaves or `stop` is signalled; throws client_error.
  void run(HANDLE keys, const console::interrupt& stop);

  ostra::future<void> received(std::vector<std::byte> bytes) override;

 private:
  [[nodiscard]] bool serve(HANDLE keys, const console::interrupt& stop);
  [[nodiscard]] bool read_keys(HANDLE keys);
  [[nodiscard]] bool handle_key(std::wstring_view text);
  void send_typed();
  void take_room();
  ostra::future<void> send(std::vector<std::byte> bytes);

  terminal_screen& screen_;
  capture_file& capture_;
  const terminal_settings settings_;
  std::atomic<bool> has_room_ = true;  // the line has room for the next bytes

  // Used by received(), one call at a time.
  time_stamper stamper_;
  cr_inserter inserter_;

  // Used by the thread that runs the session.
  terminal_commands commands_{line_, screen_, settings_.format};
  file_sender file_{line_, screen_, [this] { take_room(); }};
  command_keys command_keys_;
  std::wstring typed_;
  ostra::future<void> sending_;

  remote_line line_;  // last: it calls this object until it is destroyed
};

}  // namespace tarnwheel::client
