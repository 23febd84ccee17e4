#include "log/logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>

#include "async/errors.h"
#include "log/log_entry.h"

namespace logging {
namespace {

using namespace std::string_view_literals;

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

TEST(Logger, EachRunAppendsUpToItsLevelUntilAnEmptyMessage) {
  const auto path = std::filesystem::temp_directory_path() /
                    (L"logger_test_" + std::to_wstring(::GetCurrentProcessId()) + L".log");
  std::filesystem::remove(path);
  for (std::int32_t configured = critical; configured <= debug; ++configured) {
    Logger logger;
    ASSERT_TRUE(logger.initialize(path.wstring(), false, configured));
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
  std::wstring content(std::filesystem::file_size(path) / sizeof(wchar_t), L'\0');
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(content.data()), std::ssize(content) * 2);
  std::filesystem::remove(path);
  const std::wregex all_but_messages(L"[^\n\xFEFF]*\t|\r\n");
  EXPECT_EQ(std::regex_replace(content, all_but_messages, L""),
            L"\xFEFF"
            L"00=====0011=====001122=====00112233=====0011223344=====");
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
