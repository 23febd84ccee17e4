// A message on its way into the log, and the line that it becomes.
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
  std::size_t left_out = 0;  // lines, in a gap of the line_queue
};

// With the present time.
[[nodiscard]] log_entry make_entry(std::wstring text, std::int32_t level);

// dd.mm.yyyy hh:mm:ss <tab> LEVEL <tab> text <CR LF>, in local time. A gap says how many lines were
// left out, at level warning and with the time of the call.
[[nodiscard]] std::wstring format_line(const log_entry& entry);

}  // namespace logging
