#include "log/logger.h"

#include <new>
#include <utility>

namespace logging {
namespace {

constexpr std::wstring_view kSeparator = L"=====\t=====\t=====\r\n";

// Queued lines are written together, up to about this many code units.
constexpr std::size_t kMaxAtOnce = 32 * 1024;

constexpr DWORD kScreenTimeout = 2000;  // milliseconds

// However the writer ends, later lines are dropped.
struct queue_end {
  line_queue& entries;
  ~queue_end() { entries.close(); }
};

}  // namespace

bool Logger::initialize(std::wstring_view path, bool screen, std::int32_t level) {
  stop();
  entries_.reset();
  file_.reset();
  screen_ = screen ? std::make_unique<screen_copy>() : nullptr;
  level_ = level;
  if (!path.empty()) {
    file_ = log_file::open(path);
    if (!file_)
      return false;
  }
  entries_ = std::make_shared<line_queue>();
  writer_ = write_entries(entries_);
  if (writer_.is_complete())
    std::exchange(writer_, {}).get();  // failed before the first entry
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
  entries_->finish();
  const auto writer = std::exchange(writer_, {});
  writer.wait();
  if (screen_)
    screen_->finish(kScreenTimeout);
  writer.get();
}

// A destructor has no caller to report a failure to.
Logger::~Logger() {
  try {
    stop();
  } catch (...) {
    // The separator is still attempted: the disk may have room again.
  }
  try {
    if (file_)
      file_->append(kSeparator).get();
  } catch (...) {
  }
}

void Logger::append(log_entry next) {
  if (!entries_)
    return;
  if (next.text.empty())
    entries_->finish();
  else
    entries_->push(std::move(next));
}

ostra::future<void> Logger::write_entries(std::shared_ptr<line_queue> entries) {
  const queue_end at_the_end{*entries};
  for (;;) {
    auto popped = entries->pop();
    auto next = co_await popped;
    if (!next)
      co_return;
    const std::wstring text = take_lines(std::move(next), *entries);
    if (!file_ || text.empty())
      continue;
    try {
      auto written = file_->append(text);
      co_await written;
    } catch (const std::bad_alloc&) {
      // These lines are lost; there may be memory for the next ones.
    }
  }
}

std::wstring Logger::take_lines(std::optional<log_entry> next, line_queue& entries) {
  std::wstring text;
  while (next) {
    try {
      const std::wstring line = format_line(*next);
      text += line;
      if (screen_)
        screen_->write(line);
    } catch (const std::bad_alloc&) {
      // This line is lost.
    }
    if (text.size() >= kMaxAtOnce)
      break;
    next = entries.try_pop();
  }
  return text;
}

}  // namespace logging
