// The log of the console server: a UTF-16 file and, if asked for, a copy on the screen.
#pragma once

#include <coroutine>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "async/background.h"
#include "async/future.h"
#include "async/overlapped.h"
#include "async/srw_lock.h"
#include "format/format.h"
#include "log/ilogger.h"
#include "log/screen_copy.h"
#include "platform/unique_resource.h"

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
// Lines for which there is no memory when their turn comes are lost, and no others.
//
// A screen that stands still costs lines on the screen only; stop() gives it two seconds.
//
// The writer's coroutine uses this object until it ends; stop() and the destructor wait for that.
class Logger final : public ILogger {
 public:
  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Throws hresult_error when the file is open but cannot be written through the thread pool.
  bool initialize(std::wstring_view path, bool screen, std::int32_t level) override;
  void log(const std::wstring_view& message, std::int32_t level) override;
  void log(std::wstring&& message, std::int32_t level) override;
  void stop() override;

  // Stops the writer, then ends this run's part of the file with the separator line. What can no
  // longer be written is dropped; call stop() first to hear of it.
  ~Logger() override;

 private:
  struct entry {
    std::int32_t level = info;
    std::wstring message;
    std::int64_t time = 0;  // 100 ns since 1 January 1970 UTC
  };

  // The suspended writer's way back, on a pool thread.
  class resumption final : public ostra::background_call {
   public:
    std::coroutine_handle<> writer;

   private:
    void run() noexcept override { writer.resume(); }
  };

  // Suspends the writer while the queue is empty.
  class entries_come {
   public:
    explicit entries_come(Logger& logger) noexcept : logger_(logger) {}
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    [[nodiscard]] bool await_suspend(std::coroutine_handle<> writer) const noexcept;
    void await_resume() const noexcept {}

   private:
    Logger& logger_;
  };

  bool open(std::wstring_view path);
  void append(entry next);
  [[nodiscard]] bool take(entry& next) noexcept;
  // Takes lines off the queue and appends them to `text`; false at the entry that ends the writer.
  bool take_lines(const tfmt::parsed_pattern& pattern, std::wstring& text);
  void end_queue() noexcept;
  ostra::future<void> write_entries();
  ostra::future<void> write_lines();
  ostra::future<void> write_file(std::wstring_view text);
  static std::wstring line(const tfmt::parsed_pattern& pattern, const entry& entry);

  // Constant while the writer runs.
  Tamrin::unique_file file_;
  ostra::io_binding binding_;
  std::shared_ptr<screen_copy> screen_;  // null: no copy
  std::int32_t level_ = info;

  ostra::future<void> writer_;      // used by the owning thread only
  std::uint64_t write_offset_ = 0;  // bytes; used by the writer, and by the owner while none runs

  // Guarded by lock_. writer_waits_ says that the writer is suspended and nobody wakes it yet.
  ostra::srw_lock lock_;
  std::deque<entry> entries_;
  bool writer_waits_ = false;
  bool writer_ended_ = false;

  resumption resumption_;
};

}  // namespace logging
