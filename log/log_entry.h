// A message on its way to the log, and its format as a line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "log/ilogger.h"

namespace logging {

struct log_entry {
  std::wstring text;
  std::int32_t level = info;
  std::int64_t time = 0;     // 100 ns since 1 January 1970 UTC
  std::size_t left_out = 0;  // the number of lines, in a gap of a line_queue
};

// With the current time.
[[nodiscard]] log_entry make_entry(std::wstring text, std::int32_t level);

// dd.mm.yyyy hh:mm:ss <tab> LEVEL <tab> text <CR LF>, in local time. A gap becomes a line with the
// number of lines left out, at level warning and with the time of the call.
[[nodiscard]] std::wstring format_line(const log_entry& entry);

}  // namespace logging
