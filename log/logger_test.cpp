#include "log/logger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <thread>
#include <vector>

#include "async/errors.h"
#include "log/log.h"

namespace {

std::atomic<int> allocations_left = 0;  // until one fails; none does when it was 0

}  // namespace

void* operator new(std::size_t size) {
  if (allocations_left > 0 && --allocations_left == 0) {
    allocations_left = -1;
    throw std::bad_alloc();
  }
  if (void* const block = std::malloc(size))
    return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace logging {
namespace {

using namespace std::string_view_literals;

class LoggerFile : public ::testing::Test {
 protected:
  LoggerFile() {
    ::DeleteFileW(path_.c_str());
    Start();
  }
  ~LoggerFile() override {
    logger_.reset();
    ::DeleteFileW(path_.c_str());
  }

  void Start(std::int32_t level = info) {
    logger_ = std::make_unique<Logger>();
    ASSERT_TRUE(logger_->initialize(path_, false, level));
  }

  std::wstring Content() const {
    std::ifstream file(std::filesystem::path(path_), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    std::wstring content(bytes.size() / 2, L'\0');
    std::memcpy(content.data(), bytes.data(), bytes.size() / 2 * 2);
    return content;
  }

  // The messages of all lines, the separators included as "=====".
  std::vector<std::wstring> Messages() const {
    std::vector<std::wstring> messages;
    const std::wstring content = Content();
    EXPECT_EQ(content.substr(0, 1), L"\xFEFF");
    EXPECT_EQ(content.find(L'\xFEFF', 1), std::wstring::npos);
    std::wistringstream lines(content.substr(1));
    for (std::wstring line; std::getline(lines, line);)
      messages.push_back(line.substr(line.rfind(L'\t') + 1, line.size() - line.rfind(L'\t') - 2));
    return messages;
  }

  const std::wstring path_ = std::filesystem::temp_directory_path().wstring() + L"logger_test_" +
                             std::to_wstring(::GetCurrentProcessId()) + L".log";
  std::unique_ptr<Logger> logger_;
};

// The month counts from 1, the day and the hour are those of the user's clock.
TEST(LinePattern, LocalTimeLevelsAndGaps) {
  const wchar_t* const levels[] = {L"CRITICAL", L"ERROR", L"WARNING", L"INFO", L"DEBUG"};
  SYSTEMTIME utc = {2024, 3, 0, 9, 7, 5, 4, 0};
  FILETIME file_time = {};
  SYSTEMTIME local = {};
  ASSERT_TRUE(::SystemTimeToFileTime(&utc, &file_time));
  ASSERT_TRUE(::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local));
  constexpr std::int64_t kFrom1601To1970 = 116'444'736'000'000'000;
  const std::int64_t time =
      (std::int64_t{file_time.dwHighDateTime} << 32) + file_time.dwLowDateTime - kFrom1601To1970;
  for (std::int32_t level = critical; level <= debug; ++level) {
    wchar_t expected[80];
    ::swprintf(expected, 80, L"%02u.%02u.%u %02u:%02u:%02u\t%ls\tfirst \x4E2D\r\n", local.wDay,
               local.wMonth, local.wYear, local.wHour, local.wMinute, local.wSecond, levels[level]);
    EXPECT_EQ(format_line({L"first \x4E2D", level, time}), expected);
  }
  EXPECT_TRUE(format_line({{}, info, 0, 12}).ends_with(L"\tWARNING\t12 lines were left out\r\n"));
  const auto now = std::time(nullptr);
  EXPECT_LT(std::abs(make_entry(L"", info).time / 10'000'000 - now), 60);
}

TEST_F(LoggerFile, LevelsAboveItsOwnAreDropped) {
  std::size_t expected = 1;  // the separator of the run that the fixture had begun
  for (std::int32_t configured = critical; configured <= debug; ++configured) {
    Start(configured);
    for (std::int32_t level = critical; level <= debug; ++level) {
      std::wstring moved = L"moved";
      logger_->log(std::move(moved), level);
      EXPECT_TRUE(moved.empty());
      logger_->log(L"copied"sv, level);
    }
    logger_.reset();
    expected += 2 * static_cast<std::size_t>(configured + 1) + 1;
  }
  EXPECT_EQ(Messages().size(), expected);
}

TEST_F(LoggerFile, EachRunAppendsUntilAnEmptyMessageAndEndsWithTheSeparator) {
  logger_->log(L"one"sv, info);
  Start();
  logger_->log(L"two"sv, info);
  logger_->log(L""sv, info);
  logger_->log(L"lost"sv, info);
  logger_->stop();
  logger_->stop();
  logger_.reset();
  EXPECT_EQ(Messages(), (std::vector<std::wstring>{L"one", L"=====", L"two", L"====="}));
  EXPECT_TRUE(Content().ends_with(L"two\r\n=====\t=====\t=====\r\n"));
}

TEST_F(LoggerFile, WhatCannotBeTheLogIsLetGoAndAnotherPathTaken) {
  EXPECT_TRUE(logger_->initialize(path_, false, info)) << "the file that is open";
  EXPECT_FALSE(logger_->initialize(LR"(C:\no such folder\x.log)", false, info));
  logger_->log(L"dropped"sv, info);
  EXPECT_TRUE(logger_->initialize(path_, false, info));
  logger_->log(L"kept"sv, info);
  logger_.reset();
  EXPECT_EQ(Messages(), (std::vector<std::wstring>{L"kept", L"====="}));
}

TEST_F(LoggerFile, NoAllocationThatFailsEndsTheProcess) {
  logger_.reset();
  for (int failing = 1, left = 0; left <= 0; ++failing) {
    allocations_left = failing;
    try {
      Logger logger;
      logger.initialize(path_, true, info);
      logger.log(L"more text than a string holds without memory"sv, info);
    } catch (const std::bad_alloc&) {
      // In the destructor it would have ended the process.
    }
    left = allocations_left.exchange(0);
  }
  EXPECT_EQ(Messages().back(), L"=====");
}

// The host's device that is always full stands in for a full disk.
TEST(Logger, FullDiskEndsTheLogWithoutBlockingAnybody) {
  Logger logger;
  ASSERT_TRUE(logger.initialize(LR"(Z:\dev\full)", false, info));
  for (int i = 0; i < 1000; ++i)
    logger.log(L"line"sv, info);
  EXPECT_THROW(logger.stop(), ostra::hresult_error);
  logger.log(L"after"sv, info);
}

class Recorder final : public ILogger {
 public:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view&, std::int32_t) override {}
  void log(std::wstring&& message, std::int32_t) override {
    EXPECT_TRUE(alive && message == L"line 7");
  }
  void stop() override {}
  ~Recorder() override { alive = false; }

  std::atomic<bool> alive = true;
};

TEST(ProcessLogger, NobodyReachesALoggerThatIsGone) {
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    while (!stop)
      write(info, L"line {0}", 7);
  });
  for (int i = 0; i < 200; ++i) {
    const auto recorder = std::make_unique<Recorder>();
    const process_logger published(*recorder);
    std::this_thread::yield();
  }
  stop = true;
  writer.join();
}

}  // namespace
}  // namespace logging
