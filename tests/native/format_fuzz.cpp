// Patterns and arguments of format calls. The input's first line is an argument's text, which gives
// the numbers and the bools too; the rest is the pattern.
#include <algorithm>
#include <cstring>
#include <optional>

#include "format/format.h"
#include "fuzz_input.h"

namespace {

// Nothing for a malformed pattern; any other exception ends the program.
template <class Format>
std::optional<std::wstring> result_of(Format format) {
  try {
    return format();
  } catch (const tfmt::bad_extended_format_string&) {
    return std::nullopt;
  }
}

// A pattern that is nothing but `text`.
std::wstring escaped(const std::wstring& text) {
  std::wstring pattern;
  for (const wchar_t unit : text)
    pattern.append(unit == L'{' ? 2 : 1, unit);
  return pattern;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::input bytes(data, size);
  const auto line_end = std::ranges::find(bytes, '\n') - bytes.begin();
  const auto first_line = bytes.first(static_cast<std::size_t>(line_end));
  const auto text = fuzz::wide(first_line);
  const auto pattern = fuzz::wide(bytes.subspan(std::min(first_line.size() + 1, size)));

  std::int32_t number = 0;
  if (!first_line.empty())
    std::memcpy(&number, first_line.data(), std::min(first_line.size(), sizeof number));
  const auto bits = static_cast<std::uint32_t>(number);
  const bool odd = (number & 1) != 0;

  const auto once = result_of([&] { return tfmt::format(pattern, text, number, bits, odd, !odd); });
  const auto again = result_of(
      [&] { return tfmt::parsed_pattern(pattern).format(text, number, bits, odd, !odd); });
  fuzz::require(once == again);
  // Text before a pattern changes nothing but the beginning of the result.
  const auto behind =
      result_of([&] { return tfmt::format(L"}" + pattern, text, number, bits, odd, !odd); });
  fuzz::require(behind == (once ? std::optional(L"}" + *once) : std::nullopt));
  fuzz::require(tfmt::format(escaped(pattern)) == pattern);
  return 0;
}
