#include "log/logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "async/errors.h"
#include "log/log_entry.h"

namespace logging {
namespace {

using namespace std::string_view_literals;

// The month counts from 1; the day and the hour are in local time.
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

TEST(Logger, KeepsMessagesUpToItsLevelUntilAnEmptyOne) {
  const auto path = std::filesystem::temp_directory_path() /
                    (L"logger_test_" + std::to_wstring(::GetCurrentProcessId()) + L".log");
  {
    Logger logger;
    ASSERT_TRUE(logger.initialize(path.wstring(), false, warning));
    for (std::int32_t level = critical; level <= debug; ++level) {
      std::wstring moved = std::to_wstring(level);
      logger.log(std::wstring_view(moved), level);
      logger.log(std::move(moved), level);
      EXPECT_TRUE(moved.empty());
    }
    logger.log(L""sv, critical);
    logger.log(L"lost"sv, critical);
    logger.stop();
    logger.stop();
  }
  std::ifstream file(path, std::ios::binary);
  std::string content(std::istreambuf_iterator<char>(file), {});
  file.close();
  std::filesystem::remove(path);
  std::erase(content, '\0');  // the high bytes of UTF-16
  const std::regex all_but_messages("[^\n]*\t|\r\n");
  EXPECT_EQ(std::regex_replace(content, all_but_messages, ""), "001122=====");
}

// The host's /dev/full stands in for a full disk.
TEST(Logger, FullDiskEndsTheLogWithoutBlockingCallers) {
  Logger stopped, destroyed;
  for (Logger* const logger : {&stopped, &destroyed}) {
    ASSERT_TRUE(logger->initialize(LR"(Z:\dev\full)", false, info));
    for (int i = 0; i < 1000; ++i)
      logger->log(L"line"sv, info);
  }
  EXPECT_THROW(stopped.stop(), ostra::hresult_error);
}

}  // namespace
}  // namespace logging
