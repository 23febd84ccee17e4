// The log of the console server: a UTF-16 file and, if asked for, a copy on the screen.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "async/future.h"
#include "log/ilogger.h"
#include "log/line_queue.h"
#include "log/log_entry.h"
#include "log/log_file.h"
#include "log/screen_copy.h"

namespace logging {

// A log call only appends to a queue; it never waits for the disk or the screen. One writer
// coroutine takes the entries in their order and writes each as one line, as many at once as there
// are:
//
//   dd.mm.yyyy hh:mm:ss <tab> LEVEL <tab> message <CR LF>        (local time of the log call)
//
// A new file begins with the byte order mark FF FE; lines are appended to an existing one. When the
// file cannot be written any more (disk full), the writer ends, what is queued and what is logged
// later is dropped, and stop() throws that error: a full disk costs the log, never the server.
//
// The queue is a line_queue: what logs faster than the disk writes has lines left out, in whose
// place one says how many, at level warning whatever the logger's own level. Lines for which there
// is no memory when their turn comes are lost.
//
// A screen that stands still costs lines on the screen only; stop() gives it two seconds.
//
// Messages logged while no writer runs, before initialize() or after the end, are dropped.
//
// The writer's coroutine uses this object until it ends; stop() and the destructor wait for that.
class Logger final : public ILogger {
 public:
  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Throws hresult_error when the file is open but cannot be written through the thread pool, or
  // std::bad_alloc. After a failure the logger may be initialized again.
  bool initialize(std::wstring_view path, bool screen, std::int32_t level) override;
  void log(const std::wstring_view& message, std::int32_t level) override;
  void log(std::wstring&& message, std::int32_t level) override;
  void stop() override;

  // Stops the writer, then ends this run's part of the file with the separator line. What can no
  // longer be written is dropped; call stop() first to hear of it.
  ~Logger() override;

 private:
  void append(log_entry next);
  // The text of `next` and of what waits behind it, which goes to the screen too.
  [[nodiscard]] std::wstring take_lines(std::optional<log_entry> next, line_queue& entries);
  ostra::future<void> write_entries(std::shared_ptr<line_queue> entries);

  // Constant while the writer runs.
  std::unique_ptr<log_file> file_;       // null: no file
  std::unique_ptr<screen_copy> screen_;  // null: no copy
  std::shared_ptr<line_queue> entries_;  // null before the first writer; it ends with its writer
  std::int32_t level_ = info;

  ostra::future<void> writer_;  // used by the owning thread only
};

}  // namespace logging
