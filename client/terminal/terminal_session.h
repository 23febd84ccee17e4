// A remote line at the keyboard and on the screen.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "async/errors.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/remote_line.h"
#include "client/terminal/capture_file.h"
#include "client/terminal/terminal_commands.h"
#include "client/terminal/terminal_keys.h"
#include "client/terminal/terminal_screen.h"
#include "console/interrupt.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {

// Sends what is typed to the line and shows what comes from it. Constructed and run by one thread.
class terminal_session final : public line_receiver {
 public:
  // Opens COM`number`; throws client_error. `screen` and `capture` must outlive this.
  terminal_session(std::wstring_view server, std::uint32_t number, terminal_screen& screen,
                   capture_file& capture, bool echo)
      : screen_(screen), capture_(capture), echo_(echo), line_(server, number) {}

  [[nodiscard]] remote_line& line() noexcept { return line_; }

  // Returns when the user leaves or `stop` is signalled; throws client_error.
  void run(HANDLE keys, const console::interrupt& stop);

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override;

 private:
  [[nodiscard]] bool serve(HANDLE keys, const console::interrupt& stop);
  [[nodiscard]] bool read_keys(HANDLE keys);
  [[nodiscard]] bool strike(std::wstring_view text);
  void send_typed();
  ostra::future<void> send(std::vector<std::byte> bytes);
  [[nodiscard]] std::optional<client_error> reason();

  terminal_screen& screen_;
  capture_file& capture_;
  const bool echo_;
  const Tamrin::unique_handle news_{
      ostra::details::check_pointer(::CreateEventW(nullptr, FALSE, FALSE, nullptr))};
  std::atomic<bool> has_room_ = true;  // the line, for the next bytes

  // Used by the thread that runs the session.
  terminal_commands commands_{line_, screen_};
  command_keys command_keys_;
  std::wstring typed_;
  ostra::future<void> sending_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::optional<client_error> reason_;

  remote_line line_;  // last: it calls this until it has ended
};

}  // namespace tarnwheel::client
