// Logging from anywhere in the process, through the one published logger.
#pragma once

#include <string_view>

#include "format/format.h"
#include "log/ilogger.h"

namespace logging {

// Until it is destroyed, everything that write() is given goes to `logger`. The destructor returns
// when no thread uses the logger any more; what others write from then on goes nowhere. So a
// straggler on a pool thread can never reach a logger that is gone. At most one at a time.
class process_logger {
 public:
  explicit process_logger(ILogger& logger) noexcept;
  process_logger(const process_logger&) = delete;
  process_logger& operator=(const process_logger&) = delete;
  ~process_logger();
};

// Any thread. A line for which there is no memory is dropped: nothing that logs can do better.
void write_line(level level, std::wstring&& message) noexcept;

template <class... Args>
void write(level level, std::wstring_view pattern, const Args&... args) noexcept {
  std::wstring message;
  try {
    message = tfmt::format(pattern, args...);
  } catch (...) {
    return;
  }
  write_line(level, std::move(message));
}

}  // namespace logging
