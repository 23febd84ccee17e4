// The meaning of the keys of a terminal.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32.h"

namespace tarnwheel::client {

// The text that a terminal sends for a key of the console, once for each repetition: characters as
// they are, control characters, escape sequences for arrows and the like, and ESC before what is
// struck with Alt. Empty for keys that send nothing. A character beyond U+FFFF comes as two keys.
[[nodiscard]] std::wstring text_of(const KEY_EVENT_RECORD& key);

enum class key_command {
  none,
  send,  // the key goes to the line
  leave,
  send_break,
  toggle_dtr,
  toggle_rts,
  show_state,
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

}  // namespace tarnwheel::client
