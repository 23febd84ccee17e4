// Patterns and arguments of format calls. The input's first line is an argument's text, which gives
// the number and the bool too; the rest is the pattern.
#include <algorithm>
#include <cstring>
#include <optional>

#include "format/format.h"
#include "fuzz.h"

void fuzz::run(input bytes) {
  const auto size = static_cast<std::size_t>(std::ranges::find(bytes, '\n') - bytes.begin());
  const auto text = wide(bytes.first(size));
  const auto pattern = wide(bytes.subspan(std::min(size + 1, bytes.size())));
  std::int32_t number = 0;
  if (size != 0)
    std::memcpy(&number, bytes.data(), std::min(size, sizeof number));
  const auto bits = static_cast<std::uint32_t>(number);
  const bool odd = (number & 1) != 0;

  // Nothing for a malformed pattern; any other exception ends the program.
  const auto result_of = [&](const std::wstring& used) -> std::optional<std::wstring> {
    try {
      return tfmt::format(used, text, number, bits, odd, !odd);
    } catch (const tfmt::bad_extended_format_string&) {
      return std::nullopt;
    }
  };
  // Text before a pattern changes nothing but the beginning of the result.
  const auto once = result_of(pattern);
  const auto behind = result_of(L"}" + pattern);
  require(behind == (once ? std::optional(L"}" + *once) : std::nullopt));
}
