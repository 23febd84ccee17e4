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

// The text that a terminal sends for a key of the console, once for each repetition: characters as
// they are, control characters, escape sequences for arrows and the like, and ESC before what is
// struck with Alt. Empty for keys that send nothing. A character beyond U+FFFF comes as two keys.
[[nodiscard]] std::wstring text_of(const KEY_EVENT_RECORD& key);

// The texts of the keys that have been struck in a console, one key after another. Blocks until there
// is an event of the console; nothing when the console has gone.
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

// Finds the commands among the keys: each is Ctrl+] and then one more key.
class command_keys {
 public:
  // The meaning of a key by its text, which is not empty.
  [[nodiscard]] key_command feed(std::wstring_view text) noexcept;

  // The commands in words, a line each.
  [[nodiscard]] static std::wstring_view help() noexcept;

 private:
  bool prefixed_ = false;
};

// The keys while there is no line for them: only Ctrl+] q has a meaning, everything else is
// discarded.
class leave_key {
 public:
  // `keys` is the console's input; `stop` must outlive this.
  leave_key(HANDLE keys, const console::interrupt& stop) : keys_(keys), stop_(stop) {}

  // Blocks for `time`; true, at once, when the user leaves, by that key or by `stop`.
  [[nodiscard]] bool wait(std::chrono::milliseconds time);

 private:
  const HANDLE keys_;
  const console::interrupt& stop_;
  command_keys commands_;
};

}  // namespace tarnwheel::client
