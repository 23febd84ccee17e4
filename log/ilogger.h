// The interface of a logger.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace logging {

// Smaller is more severe. A logger keeps the messages whose level is at most its own.
enum level : std::int32_t { critical = 0, error = 1, warning = 2, info = 3, debug = 4 };

// Any thread may log; one thread initializes, stops and destroys.
class ILogger {
 public:
  // Opens the log; `path` is empty for a log without a file. False when the file cannot be opened.
  virtual bool initialize(std::wstring_view path, bool screen, std::int32_t level) = 0;

  // Levels critical to debug only. An empty message ends the log like stop(), but without waiting.
  virtual void log(const std::wstring_view& message, std::int32_t level) = 0;
  // Leaves `message` empty, whether or not its level is kept.
  virtual void log(std::wstring&& message, std::int32_t level) = 0;

  // Returns once everything logged before has been written; throws the error if writing has failed.
  virtual void stop() = 0;

  virtual ~ILogger() = default;
};

}  // namespace logging
