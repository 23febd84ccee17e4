// What ends a verb, and how the user is told.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/win32.h"

namespace tarnwheel::client {

// A failure with its cause in words and its code.
class client_error {
 public:
  client_error(std::wstring_view cause, HRESULT code);

  // "No server runs on this machine (0x80070002)".
  [[nodiscard]] const std::wstring& message() const noexcept { return message_; }

 private:
  std::wstring message_;
};

// What a Win32 error means in one place of the program; {0} stands for what it befell.
struct known_cause {
  DWORD error;
  std::wstring_view pattern;
};

// Explains `code` by the first row that matches it, or else by the system's own words.
[[nodiscard]] client_error explain(HRESULT code, std::wstring_view subject,
                                   std::span<const known_cause> causes = {});

}  // namespace tarnwheel::client
