// Logging from anywhere in the process, through the one published logger.
#pragma once

#include <cstdint>
#include <string_view>

#include "format/format.h"
#include "log/ilogger.h"

namespace logging {

// Below every level: the greatest level that a logger of nothing keeps.
inline constexpr std::int32_t kNothing = -1;

// Until it is destroyed, everything that write() is given goes to `logger`. The destructor returns
// when no thread uses the logger any more; what others write from then on goes nowhere. So a
// straggler on a pool thread can never reach a logger that is gone. At most one at a time.
class process_logger {
 public:
  // `most` is the greatest level that the logger keeps; lines above it are not even formatted.
  explicit process_logger(ILogger& logger, std::int32_t most = debug) noexcept;
  process_logger(const process_logger&) = delete;
  process_logger& operator=(const process_logger&) = delete;
  ~process_logger();
};

// Says whether a line of this level is kept. Any thread.
[[nodiscard]] bool is_kept(level level) noexcept;

// Any thread. A line for which there is no memory is dropped: nothing that logs can do better.
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
