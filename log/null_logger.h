// A logger that discards everything.
#pragma once

#include "log/ilogger.h"

namespace logging {

class null_logger final : public ILogger {
 public:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view&, std::int32_t) override {}
  void log(std::wstring&& message, std::int32_t) override { message.clear(); }
  void stop() override {}
};

}  // namespace logging
