// The parsed form of a pattern: literal runs and placeholders, in the pattern's order.
#pragma once

#include <cstdint>
#include <string_view>

namespace tfmt::details {

// Bits of segment::flags.
inline constexpr std::uint32_t kEllipsis = 0x00001;
inline constexpr std::uint32_t kPlus = 0x00002;
inline constexpr std::uint32_t kLowerCase = 0x00004;
inline constexpr std::uint32_t kCharacter = 0x00008;
inline constexpr std::uint32_t kGrouped = 0x00010;
inline constexpr std::uint32_t kTextParameter = 0x00020;
inline constexpr std::uint32_t kPrefix = 0x00040;
inline constexpr std::uint32_t kLiteral = 0x00080;
inline constexpr std::uint32_t kOpen = 0x00100;
inline constexpr std::uint32_t kClose = 0x00200;
inline constexpr std::uint32_t kElse = 0x00400;
inline constexpr std::uint32_t kConditional = 0x00800;
inline constexpr std::uint32_t kZeroPadded = 0x01000;
inline constexpr std::uint32_t kLetterN = 0x02000;
inline constexpr std::uint32_t kLetterS = 0x04000;
inline constexpr std::uint32_t kLettersSa = 0x08000;
inline constexpr std::uint32_t kUnsigned = 0x10000;

enum class alignment : std::uint16_t { left, centre, right };

// Views point into the pattern. Lengths are in code units. Numbers are not range-checked; each
// wraps at the size of its field. The precision, the text parameter and the flags kLetterN,
// kLetterS and kLettersSa are accepted in patterns but do not affect the output.
struct segment {
  std::uint32_t flags = 0;
  bool has_escapes = false;     // literal: contains at least one "{{"
  std::uint8_t base = 10;       // 2, 8 or 10; any other base means hexadecimal
  std::uint16_t index = 0;      // of the argument
  std::wstring_view text;       // literal: the run, still escaped; placeholder: text parameter
  std::uint16_t width = 0;      // minimum, 0 = none
  std::uint16_t max_width = 0;  // 0 = none
  std::uint16_t precision = 0;
  alignment align = alignment::left;
  wchar_t fill = L' ';

  [[nodiscard]] bool has(std::uint32_t flag) const noexcept { return (flags & flag) != 0; }
};

}  // namespace tfmt::details
