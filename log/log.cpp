#include "log/log.h"

#include <atomic>
#include <utility>

#include "async/published.h"

namespace logging {
namespace {

constinit ostra::published<ILogger> current;
constinit std::atomic<std::int32_t> most_kept = kKeepNothing;

}  // namespace

process_logger::process_logger(ILogger& logger, std::int32_t most) noexcept {
  current.publish(logger);
  most_kept = most;
}

process_logger::~process_logger() {
  most_kept = kKeepNothing;
  current.withdraw();
}

bool is_kept(level level) noexcept {
  return level <= most_kept;
}

void write_line(level level, std::wstring&& message) noexcept {
  try {
    current.use([&](ILogger& logger) { logger.log(std::move(message), level); });
  } catch (...) {
    // Out of memory: the line is dropped.
  }
}

}  // namespace logging
