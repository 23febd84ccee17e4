#include "log/logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>

#include "async/errors.h"
#include "log/log.h"

namespace logging {
namespace {

using namespace std::string_view_literals;

class LoggerFile : public ::testing::Test {
 protected:
  LoggerFile() {
    std::filesystem::remove(path_);
    Start();
  }
  ~LoggerFile() override {
    logger_.reset();
    std::filesystem::remove(path_);
  }

  void Start(std::int32_t level = info) {
    logger_ = std::make_unique<Logger>();
    ASSERT_TRUE(logger_->initialize(path_, false, level));
  }

  // The messages of all lines, one behind the other, in which a separator is "=".
  std::wstring Messages() {
    logger_.reset();
    std::ifstream file(std::filesystem::path(path_), std::ios::binary);
    std::wstring content(static_cast<std::size_t>(std::filesystem::file_size(path_)) / 2, L'\0');
    file.read(reinterpret_cast<char*>(content.data()), std::ssize(content) * 2);
    EXPECT_TRUE(content.starts_with(L'\xFEFF') &&
                content.ends_with(L"\r\n=====\t=====\t=====\r\n"));
    std::wstring messages;
    for (std::size_t end = 0; (end = content.find(L"\r\n", end)) != std::wstring::npos; ++end) {
      const std::size_t begin = content.rfind(L'\t', end) + 1;
      messages += content.substr(begin, content[begin] == L'=' ? 1 : end - begin);
    }
    return messages;
  }

  const std::wstring path_ = std::filesystem::temp_directory_path().wstring() + L"logger_test_" +
                             std::to_wstring(::GetCurrentProcessId()) + L".log";
  std::unique_ptr<Logger> logger_;
};

// The month counts from 1, the day and the hour are those of the user's clock.
TEST(LinePattern, LocalTimeLevelsAndGaps) {
  ::_putenv_s("TZ", "TST-9");
  ::_tzset();
  constexpr std::int64_t kTime = 1709939105;  // 8 March 2024, 23:05:05 UTC
  const wchar_t* const levels[] = {L"CRITICAL", L"ERROR", L"WARNING", L"INFO", L"DEBUG"};
  for (std::int32_t level = critical; level <= debug; ++level)
    EXPECT_EQ(format_line({L"first \x4E2D", level, kTime * 10'000'000}),
              L"09.03.2024 08:05:05\t" + std::wstring(levels[level]) + L"\tfirst \x4E2D\r\n");
  EXPECT_TRUE(format_line({{}, info, 0, 12}).ends_with(L"\tWARNING\t12 lines were left out\r\n"));
  EXPECT_LT(std::abs(make_entry(L"", info).time / 10'000'000 - std::time(nullptr)), 60);
}

TEST_F(LoggerFile, EachRunAppendsUpToItsLevelUntilAnEmptyMessage) {
  for (std::int32_t configured = critical; configured <= debug; ++configured) {
    logger_.reset();
    Start(configured);
    for (std::int32_t level = critical; level <= debug; ++level) {
      std::wstring moved(1, static_cast<wchar_t>(L'0' + level));
      logger_->log(std::wstring_view(moved), level);
      logger_->log(std::move(moved), level);
      EXPECT_TRUE(moved.empty());
    }
    logger_->log(L""sv, critical);
    logger_->log(L"lost"sv, critical);
    logger_->stop();
    logger_->stop();
  }
  EXPECT_EQ(Messages(), L"=00=0011=001122=00112233=0011223344=");
}

// The host's device that is always full stands in for a full disk.
TEST(Logger, FullDiskEndsTheLogWithoutBlockingAnybody) {
  for (const bool stops : {true, false}) {
    Logger logger;
    ASSERT_TRUE(logger.initialize(LR"(Z:\dev\full)", false, info));
    for (int i = 0; i < 1000; ++i)
      logger.log(L"line"sv, info);
    if (stops) {
      EXPECT_THROW(logger.stop(), ostra::hresult_error);
    }
  }
}

}  // namespace
}  // namespace logging
