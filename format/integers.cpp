#include "format/integers.h"

#include <algorithm>

#include "format/thousands_separator.h"

namespace tfmt::details {
namespace {

constexpr wchar_t kUpperDigits[] = L"0123456789ABCDEF";
constexpr wchar_t kLowerDigits[] = L"0123456789abcdef";
constexpr std::size_t kShortPadding = 8;
constexpr std::size_t kLongPadding = 16;

}  // namespace

integer_text::integer_text(std::int32_t value, const segment& placeholder) {
  const auto bits = static_cast<std::uint32_t>(value);
  const bool has_sign = !placeholder.has(kUnsigned | kCharacter);
  // Negated as unsigned: the magnitude of the smallest integer has no signed representation.
  put_magnitude(has_sign && value < 0 ? 0u - bits : bits, placeholder);
  if (has_sign && value < 0)
    put(L'-');
  if (has_sign && value >= 0 && placeholder.has(kPlus))
    put(L'+');
}

integer_text::integer_text(std::uint32_t value, const segment& placeholder) {
  put_magnitude(value, placeholder);
}

void integer_text::put_magnitude(std::uint32_t magnitude, const segment& placeholder) {
  if (placeholder.has(kCharacter))
    return put(static_cast<wchar_t>(magnitude & 0xFFFFu));
  switch (placeholder.base) {
    case 2:
      return put_binary_digits(magnitude, 1, kUpperDigits);
    case 8:
      return put_binary_digits(magnitude, 3, kUpperDigits);
    case 10:
      return placeholder.has(kGrouped) ? put_grouped_decimal(magnitude) : put_decimal(magnitude);
    default:
      return put_hexadecimal(magnitude, placeholder);
  }
}

void integer_text::put_binary_digits(std::uint32_t magnitude, unsigned bits_per_digit,
                                     const wchar_t* digits) {
  const std::uint32_t mask = (1u << bits_per_digit) - 1;
  do {
    put(digits[magnitude & mask]);
    magnitude >>= bits_per_digit;
  } while (magnitude != 0);
}

void integer_text::put_decimal(std::uint32_t magnitude) {
  do {
    put(static_cast<wchar_t>(L'0' + magnitude % 10));
    magnitude /= 10;
  } while (magnitude != 0);
}

void integer_text::put_grouped_decimal(std::uint32_t magnitude) {
  static_assert(1 + 10 + 3 * kMaxSeparator <= kCapacity);
  const auto separator = thousands_separator();
  for (; magnitude >= 1000; magnitude /= 1000) {
    const std::size_t group = begin_ - 3;
    put_decimal(magnitude % 1000);
    while (begin_ > group)
      put(L'0');
    std::for_each(separator.rbegin(), separator.rend(), [this](wchar_t unit) { put(unit); });
  }
  put_decimal(magnitude);
}

void integer_text::put_hexadecimal(std::uint32_t magnitude, const segment& placeholder) {
  const bool lower = placeholder.has(kLowerCase);
  put_binary_digits(magnitude, 4, lower ? kLowerDigits : kUpperDigits);
  if (placeholder.has(kZeroPadded)) {
    const std::size_t digits = kCapacity - begin_;
    const std::size_t wanted = digits > kShortPadding ? kLongPadding : kShortPadding;
    while (kCapacity - begin_ < wanted)
      put(L'0');
  }
  // Zero deliberately gets no prefix.
  if (placeholder.has(kPrefix) && magnitude != 0) {
    put(lower ? L'x' : L'X');
    put(L'0');
  }
}

}  // namespace tfmt::details
