// The server's log: a UTF-16 file and, if requested, a copy on the screen.
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
// coroutine takes the entries in order and formats each as one line; queued lines are written
// together:
//
//   dd.mm.yyyy hh:mm:ss <tab> LEVEL <tab> message <CR LF>        (local time of the log call)
//
// A new file begins with the byte order mark FF FE; lines are appended to an existing one. When the
// file can no longer be written (disk full), the writer ends, queued and later lines are dropped,
// and stop() throws that error: a full disk costs the log, never the server.
//
// The queue is a line_queue: when lines come faster than the disk takes them, some are left out. A
// line in their place gives their number, at level warning whatever the logger's own level. Lines
// that cannot be formatted for lack of memory are lost.
//
// A blocked screen loses lines on the screen only; stop() waits two seconds for it.
//
// Messages logged while no writer runs, before initialize() or after the end, are dropped.
//
// The writer's coroutine uses this object until it ends; stop() and the destructor wait for that.
class Logger final : public ILogger {
 public:
  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Throws hresult_error when the file can be opened but not written through the thread pool, or
  // std::bad_alloc. After a failure the logger may be initialized again.
  bool initialize(std::wstring_view path, bool screen, std::int32_t level) override;
  void log(const std::wstring_view& message, std::int32_t level) override;
  void log(std::wstring&& message, std::int32_t level) override;
  void stop() override;

  // Stops the writer, then ends this run's part of the file with the separator line. Failed writes
  // are ignored; call stop() first to learn of them.
  ~Logger() override;

 private:
  void append(log_entry next);
  // Formats `next` and the entries queued behind it, and copies them to the screen.
  [[nodiscard]] std::wstring take_lines(std::optional<log_entry> next, line_queue& entries);
  ostra::future<void> write_entries(std::shared_ptr<line_queue> entries);

  // Constant while the writer runs.
  std::unique_ptr<log_file> file_;       // null: no file
  std::unique_ptr<screen_copy> screen_;  // null: no copy
  std::shared_ptr<line_queue> entries_;  // null before the first writer; closed by its writer
  std::int32_t level_ = info;

  ostra::future<void> writer_;  // used by the owning thread only
};

}  // namespace logging
