#include "console/utf8.h"

#include <algorithm>

#include "platform/win32.h"

namespace console {
namespace {

// The length in bytes of the character that `first` begins; also 1 when it cannot begin one.
std::size_t length_from(std::byte first) {
  const auto value = std::to_integer<unsigned>(first);
  if (value >= 0xC2 && value < 0xE0)
    return 2;
  if (value >= 0xE0 && value < 0xF0)
    return 3;
  return value >= 0xF0 && value < 0xF5 ? 4 : 1;
}

bool is_continuation(std::byte byte) {
  return (byte & std::byte{0xC0}) == std::byte{0x80};
}

// The number of bytes at the end that begin a character without completing it.
std::size_t incomplete_at_end(std::span<const std::byte> bytes) {
  std::size_t count = 0;
  while (count < std::min<std::size_t>(bytes.size(), 3)) {
    const std::byte last = bytes[bytes.size() - ++count];
    if (!is_continuation(last))
      return length_from(last) > count ? count : 0;
  }
  return 0;
}

}  // namespace

std::vector<std::byte> to_utf8(std::wstring_view text) {
  const auto length = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, reinterpret_cast<char*>(bytes.data()),
                        size, nullptr, nullptr);
  return bytes;
}

std::wstring from_utf8(std::span<const std::byte> bytes) {
  const auto* const text = reinterpret_cast<const char*>(bytes.data());
  const auto length = static_cast<int>(bytes.size());
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, text, length, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(size), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, text, length, result.data(), size);
  return result;
}

std::wstring utf8_stream::decode(std::span<const std::byte> bytes) {
  incomplete_.insert(incomplete_.end(), bytes.begin(), bytes.end());
  const auto complete = incomplete_.size() - incomplete_at_end(incomplete_);
  std::wstring text = from_utf8(std::span(incomplete_).first(complete));
  incomplete_.erase(incomplete_.begin(),
                    incomplete_.begin() + static_cast<std::ptrdiff_t>(complete));
  return text;
}

}  // namespace console
