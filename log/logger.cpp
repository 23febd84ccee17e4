#include "log/logger.h"

#include <array>
#include <chrono>
#include <ctime>
#include <mutex>
#include <new>
#include <utility>

#include "async/errors.h"
#include "async/handle_wait.h"

namespace logging {
namespace {

using namespace std::string_view_literals;

constexpr std::wstring_view kLine =
    L"{0w2arf0}.{1w2arf0}.{2} {3w2arf0}:{4w2arf0}:{5w2arf0}\t{6}\t{7}\r\n";
constexpr std::wstring_view kSeparator = L"=====\t=====\t=====\r\n";
constexpr std::wstring_view kByteOrderMark = L"\xFEFF";
static_assert(sizeof(wchar_t) == 2, "lines go to the file as UTF-16");

constexpr std::array kLevelNames = {L"CRITICAL"sv, L"ERROR"sv, L"WARNING"sv, L"INFO"sv, L"DEBUG"sv};

// Lines that are there together are written together; in code units.
constexpr std::size_t kMostAtOnce = 32 * 1024;

constexpr DWORD kScreenPatience = 2000;  // milliseconds

std::int64_t now() {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<ostra::ticks>(since_epoch).count();
}

}  // namespace

bool Logger::initialize(std::wstring_view path, bool screen, std::int32_t level) {
  stop();
  screen_ = screen ? std::make_shared<screen_copy>() : nullptr;
  level_ = level;
  if (!path.empty() && !open(path))
    return false;
  {
    const std::lock_guard guard(lock_);
    writer_ended_ = false;
  }
  writer_ = write_entries();
  return true;
}

bool Logger::open(std::wstring_view path) {
  file_.reset(::CreateFileW(std::wstring(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                            OPEN_ALWAYS, FILE_FLAG_OVERLAPPED, nullptr));
  const bool existed = ::GetLastError() == ERROR_ALREADY_EXISTS;
  if (!file_)
    return false;
  binding_.bind(file_.get(), ostra::immediate_success::queues_completion);
  if (existed) {
    LARGE_INTEGER end = {};
    ostra::details::check_bool(::SetFilePointerEx(file_.get(), {}, &end, FILE_END));
    write_offset_ = static_cast<std::uint64_t>(end.QuadPart);
  } else {
    write_offset_ = 0;
    write_file(kByteOrderMark).get();
  }
  return true;
}

void Logger::log(const std::wstring_view& message, std::int32_t level) {
  if (level > level_)
    return;
  append({level, std::wstring(message), now()});
}

void Logger::log(std::wstring&& message, std::int32_t level) {
  std::wstring taken = std::exchange(message, {});
  if (level > level_)
    return;
  append({level, std::move(taken), now()});
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

Logger::~Logger() {
  try {
    stop();
  } catch (const ostra::hresult_error&) {
    // The separator is still tried: the disk may have room again.
  }
  try {
    if (file_)
      write_file(kSeparator).get();
  } catch (const ostra::hresult_error&) {
    // A destructor has nobody to tell.
  }
}

void Logger::append(entry next) {
  {
    const std::lock_guard guard(lock_);
    if (writer_ended_)
      return;
    entries_.push_back(std::move(next));
    if (!std::exchange(writer_waits_, false))
      return;
  }
  resumption_.post();
}

bool Logger::entries_come::await_suspend(std::coroutine_handle<> writer) const noexcept {
  const std::lock_guard guard(logger_.lock_);
  if (!logger_.entries_.empty())
    return false;
  logger_.resumption_.writer = writer;
  logger_.writer_waits_ = true;
  return true;
}

bool Logger::take(entry& next) noexcept {
  const std::lock_guard guard(lock_);
  if (entries_.empty())
    return false;
  next = std::move(entries_.front());
  entries_.pop_front();
  return true;
}

void Logger::end_queue() noexcept {
  const std::lock_guard guard(lock_);
  writer_ended_ = true;
  entries_.clear();
}

ostra::future<void> Logger::write_entries() {
  auto lines = write_lines();
  try {
    co_await lines;
  } catch (...) {
    end_queue();
    throw;  // to whoever stops the logger
  }
  end_queue();
}

ostra::future<void> Logger::write_lines() {
  const tfmt::parsed_pattern pattern(kLine);
  for (bool more = true; more;) {
    entries_come coming(*this);
    co_await coming;
    std::wstring text;
    more = take_lines(pattern, text);
    if (!file_ || text.empty())
      continue;
    try {
      auto written = write_file(text);
      co_await written;
    } catch (const std::bad_alloc&) {
      // These lines are lost; the next ones may find memory again.
    }
  }
}

// A line for which there is no memory is left out.
bool Logger::take_lines(const tfmt::parsed_pattern& pattern, std::wstring& text) {
  for (entry current; text.size() < kMostAtOnce && take(current);) {
    if (current.message.empty())
      return false;
    try {
      const std::wstring next = line(pattern, current);
      text += next;
      if (screen_)
        screen_->write(next);
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
  return true;
}

ostra::future<void> Logger::write_file(std::wstring_view text) {
  const auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  const std::uint64_t offset = write_offset_;
  write_offset_ += size;
  ostra::io_call write(binding_, ostra::write_file{text.data(), size}, {}, offset);
  const DWORD written = co_await write;
  if (written != size)
    ostra::details::throw_win32(ERROR_WRITE_FAULT);
}

std::wstring Logger::line(const tfmt::parsed_pattern& pattern, const entry& entry) {
  const __time64_t seconds = entry.time / 10'000'000;
  std::tm local = {};
  ::_localtime64_s(&local, &seconds);
  return pattern.format(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour,
                        local.tm_min, local.tm_sec,
                        kLevelNames[static_cast<std::size_t>(entry.level)], entry.message);
}

}  // namespace logging
