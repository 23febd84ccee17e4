// Formats an integer as its placeholder specifies.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "format/segment.h"

namespace tfmt::details {

// Holds the text in a fixed buffer, written backwards from its end; never allocates.
class integer_text {
 public:
  integer_text(std::int32_t value, const segment& placeholder);
  integer_text(std::uint32_t value, const segment& placeholder);
  integer_text(const integer_text&) = delete;
  integer_text& operator=(const integer_text&) = delete;

  // Valid while this object lives.
  [[nodiscard]] std::wstring_view view() const noexcept {
    return std::wstring_view(buffer_.data(), buffer_.size()).substr(begin_);
  }

 private:
  void put(wchar_t character) noexcept { buffer_[--begin_] = character; }
  void put_magnitude(std::uint32_t magnitude, const segment& placeholder);
  void put_binary_digits(std::uint32_t magnitude, unsigned bits_per_digit, const wchar_t* digits);
  void put_decimal(std::uint32_t magnitude);
  void put_grouped_decimal(std::uint32_t magnitude);
  void put_hexadecimal(std::uint32_t magnitude, const segment& placeholder);

  // The longest text is a sign and 32 binary digits.
  static constexpr std::size_t kCapacity = 33;

  std::array<wchar_t, kCapacity> buffer_;
  std::size_t begin_ = kCapacity;
};

}  // namespace tfmt::details
