#include "log/log_entry.h"

#include <array>
#include <chrono>
#include <ctime>
#include <ratio>
#include <string_view>
#include <utility>

#include "format/format.h"

namespace logging {
namespace {

using namespace std::string_view_literals;

constexpr std::wstring_view kLine =
    L"{0w2arf0}.{1w2arf0}.{2} {3w2arf0}:{4w2arf0}:{5w2arf0}\t{6}\t{7}\r\n";

constexpr std::array kLevelNames = {L"CRITICAL"sv, L"ERROR"sv, L"WARNING"sv, L"INFO"sv, L"DEBUG"sv};

constexpr std::int64_t kTicksPerSecond = 10'000'000;
using ticks = std::chrono::duration<std::int64_t, std::ratio<1, kTicksPerSecond>>;

}  // namespace

log_entry make_entry(std::wstring text, std::int32_t level) {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return {std::move(text), level, std::chrono::duration_cast<ticks>(since_epoch).count()};
}

std::wstring format_line(const log_entry& entry) {
  if (entry.left_out != 0)
    return format_line(
        make_entry(std::to_wstring(entry.left_out) + L" lines were left out", warning));
  const __time64_t seconds = entry.time / kTicksPerSecond;
  std::tm local = {};
  ::_localtime64_s(&local, &seconds);
  return tfmt::format(kLine, local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour,
                      local.tm_min, local.tm_sec,
                      kLevelNames[static_cast<std::size_t>(entry.level)], entry.text);
}

}  // namespace logging
