// The meaning of the keys of a terminal.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console/interrupt.h"
#include "platform/win32.h"

namespace tarnwheel::client {

// The text that a terminal sends for each repetition of a console key: characters as they are,
// control characters, escape sequences for arrows and the like, and ESC before the text of a key
// struck with Alt. Empty for keys that send nothing. A character beyond U+FFFF arrives as two keys.
[[nodiscard]] std::wstring text_of(const KEY_EVENT_RECORD& key);

// The texts of the keys struck in a console, in order. Blocks until the console has an event;
// nullopt if the console has gone.
[[nodiscard]] std::optional<std::vector<std::wstring>> read_keys(HANDLE console);

enum class key_command {
  none,
  send,  // the key goes to the line
  leave,
  send_break,
  toggle_dtr,
  toggle_rts,
  show_state,
  send_file,
  show_keys,
};

// Finds the commands among the keys: each is Ctrl+] followed by one more key.
class command_keys {
 public:
  // The meaning of the next key, given its text, which must not be empty.
  [[nodiscard]] key_command feed(std::wstring_view text) noexcept;

  // A description of the commands, one per line.
  [[nodiscard]] static std::wstring_view help() noexcept;

 private:
  bool prefixed_ = false;
};

// Handles keys while there is no line for them: Ctrl+] q leaves, everything else is discarded.
class leave_key {
 public:
  // `keys` is the console's input; `stop` must outlive this.
  leave_key(HANDLE keys, const console::interrupt& stop) : keys_(keys), stop_(stop) {}

  // Blocks for `time`; returns true, at once, when the user leaves, by that key or by `stop`.
  [[nodiscard]] bool wait(std::chrono::milliseconds time);

 private:
  const HANDLE keys_;
  const console::interrupt& stop_;
  command_keys commands_;
};

}  // namespace tarnwheel::client
