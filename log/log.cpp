#include "log/log.h"

#include <utility>

#include "async/published.h"

namespace logging {
namespace {

constinit ostra::published<ILogger> current;

}  // namespace

process_logger::process_logger(ILogger& logger) noexcept {
  current.publish(logger);
}

process_logger::~process_logger() {
  current.withdraw();
}

void write_line(level level, std::wstring&& message) noexcept {
  try {
    current.use([&](ILogger& logger) { logger.log(std::move(message), level); });
  } catch (...) {
    // No memory for the entry.
  }
}

}  // namespace logging
