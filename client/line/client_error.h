// The failure that ends a verb, with its message for the user.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/win32.h"

namespace tarnwheel::client {

// The kinds of failure that a script can tell apart; the value is the program's exit code.
enum class failure {
  usage = 1,       // the command line
  connection = 2,  // the server cannot be reached, or has gone
  refused = 3,     // the server, its system or another client refuses the port or the account
  device = 4,      // the device failed, or did not answer in time
  local = 5,       // this machine: its output, a file, an address that is taken
};

// A failure: its cause in words, its code and its kind.
class client_error {
 public:
  client_error(std::wstring_view cause, HRESULT code, failure kind = failure::device);

  // "No server runs on this machine (0x80070002)".
  [[nodiscard]] const std::wstring& message() const noexcept { return message_; }

  [[nodiscard]] HRESULT code() const noexcept { return code_; }
  [[nodiscard]] failure kind() const noexcept { return kind_; }

 private:
  std::wstring message_;
  HRESULT code_;
  failure kind_;
};

// The meaning of a Win32 error in one context; {0} in the pattern stands for the subject.
struct known_cause {
  DWORD error;
  std::wstring_view pattern;
  failure kind = failure::device;
};

// Describes `code` by the first row that matches it, or else by the system's own message as a
// failure of the kind `otherwise`.
[[nodiscard]] client_error explain(HRESULT code, std::wstring_view subject,
                                   std::span<const known_cause> causes = {},
                                   failure otherwise = failure::device);

}  // namespace tarnwheel::client
