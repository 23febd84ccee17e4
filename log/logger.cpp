#include "log/logger.h"

#include <mutex>
#include <new>
#include <utility>

namespace logging {
namespace {

constexpr std::wstring_view kSeparator = L"=====\t=====\t=====\r\n";

// Lines that are there together are written together; in code units.
constexpr std::size_t kMostAtOnce = 32 * 1024;

constexpr DWORD kScreenPatience = 2000;  // milliseconds

}  // namespace

bool Logger::initialize(std::wstring_view path, bool screen, std::int32_t level) {
  stop();
  file_.reset();
  screen_ = screen ? std::make_shared<screen_copy>() : nullptr;
  level_ = level;
  if (!path.empty()) {
    file_ = log_file::open(path);
    if (!file_)
      return false;
  }
  writer_ = write_entries();
  if (writer_.is_complete())
    std::exchange(writer_, {}).get();  // what failed did so before the first entry
  return true;
}

void Logger::log(const std::wstring_view& message, std::int32_t level) {
  if (level > level_)
    return;
  append(make_entry(std::wstring(message), level));
}

void Logger::log(std::wstring&& message, std::int32_t level) {
  std::wstring taken = std::exchange(message, {});
  if (level > level_)
    return;
  append(make_entry(std::move(taken), level));
}

void Logger::stop() {
  if (!writer_.valid())
    return;
  append({});
  const auto writer = std::exchange(writer_, {});
  writer.wait();
  if (screen_)
    screen_->finish(kScreenPatience);
  writer.get();
}

// Nobody is left to hear of a failure.
Logger::~Logger() {
  try {
    stop();
  } catch (...) {
    // The separator is still tried: the disk may have room again.
  }
  try {
    if (file_)
      file_->append(kSeparator).get();
  } catch (...) {
  }
}

void Logger::append(log_entry next) {
  {
    const std::lock_guard guard(lock_);
    if (!open_)
      return;
    if (next.text.empty()) {
      open_ = false;
    } else {
      entries_.push(std::move(next));
    }
    if (!std::exchange(writer_waits_, false))
      return;
  }
  resumption_.post();
}

Logger::open_queue::open_queue(Logger& logger) noexcept : logger_(logger) {
  const std::lock_guard guard(logger_.lock_);
  logger_.open_ = true;
}

Logger::open_queue::~open_queue() {
  const std::lock_guard guard(logger_.lock_);
  logger_.open_ = false;
  logger_.entries_.clear();
}

bool Logger::entries_come::await_suspend(std::coroutine_handle<> writer) const noexcept {
  const std::lock_guard guard(logger_.lock_);
  if (!logger_.open_ || !logger_.entries_.empty())
    return false;
  logger_.resumption_.writer = writer;
  logger_.writer_waits_ = true;
  return true;
}

bool Logger::entries_come::await_resume() const noexcept {
  const std::lock_guard guard(logger_.lock_);
  return !logger_.entries_.empty();
}

bool Logger::take(log_entry& next) noexcept {
  const std::lock_guard guard(lock_);
  return entries_.take(next);
}

ostra::future<void> Logger::write_entries() {
  const open_queue open(*this);
  const line_pattern pattern;
  for (;;) {
    entries_come coming(*this);
    const bool more = co_await coming;
    if (!more)
      co_return;
    const std::wstring text = take_lines(pattern);
    if (!file_ || text.empty())
      continue;
    try {
      auto written = file_->append(text);
      co_await written;
    } catch (const std::bad_alloc&) {
      // These lines are lost; the next ones may find memory again.
    }
  }
}

std::wstring Logger::take_lines(const line_pattern& pattern) {
  std::wstring text;
  for (log_entry next; text.size() < kMostAtOnce && take(next);) {
    try {
      const std::wstring line = pattern.format(next);
      text += line;
      if (screen_)
        screen_->write(line);
    } catch (const std::bad_alloc&) {
      continue;  // this line is lost
    }
  }
  return text;
}

}  // namespace logging
