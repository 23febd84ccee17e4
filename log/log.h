// Logging from anywhere in the process, through the one published logger.
#pragma once

#include <cstdint>
#include <string_view>

#include "format/format.h"
#include "log/ilogger.h"

namespace logging {

// Below every level: for a logger that keeps nothing.
inline constexpr std::int32_t kKeepNothing = -1;

// While it lives, write() logs to `logger`. The destructor returns once no thread uses the logger
// any more; lines written later are discarded, so a straggler on a pool thread never reaches a
// destroyed logger. At most one exists at a time.
class process_logger {
 public:
  // `most` is the highest level that the logger keeps; lines above it are not even formatted.
  explicit process_logger(ILogger& logger, std::int32_t most = debug) noexcept;
  process_logger(const process_logger&) = delete;
  process_logger& operator=(const process_logger&) = delete;
  ~process_logger();
};

// True when lines of this level are kept. Any thread.
[[nodiscard]] bool is_kept(level level) noexcept;

// Any thread. A line for which there is no memory is dropped: no caller could do better.
void write_line(level level, std::wstring&& message) noexcept;

template <class... Args>
void write(level level, std::wstring_view pattern, const Args&... args) noexcept {
  if (!is_kept(level))
    return;
  std::wstring message;
  try {
    message = tfmt::format(pattern, args...);
  } catch (...) {
    return;
  }
  write_line(level, std::move(message));
}

}  // namespace logging
