// The only exception type of the settings folders.
#pragma once

#include <exception>

#include "platform/win32.h"

namespace Tamrin::setman {

// A folder could not be opened or created. Carries the Win32 error code.
class folder_creation_error : public std::exception {
 public:
  // `message` must outlive the exception: pass a literal.
  folder_creation_error(const char* message, DWORD error) noexcept
      : message_(message), error_(error) {}

  [[nodiscard]] const char* what() const noexcept override { return message_; }
  [[nodiscard]] DWORD error() const noexcept { return error_; }

 private:
  const char* message_;
  DWORD error_;
};

}  // namespace Tamrin::setman
