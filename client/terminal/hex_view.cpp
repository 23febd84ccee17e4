#include "client/terminal/hex_view.h"

#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr std::size_t kAsciiColumn = 60;

wchar_t ascii(std::byte byte) {
  const auto value = std::to_integer<wchar_t>(byte);
  return value >= L' ' && value <= L'~' ? value : L'.';
}

}  // namespace

std::wstring hex_view::add(std::span<const std::byte> bytes) {
  std::wstring text;
  for (const std::byte byte : bytes) {
    row_.push_back(byte);
    if (row_.size() < kBytesInRow)
      continue;
    text += L"\r" + row() + L"\r\n";
    offset_ += kBytesInRow;
    row_.clear();
  }
  if (!row_.empty())
    text += L"\r" + row();
  return text;
}

std::wstring hex_view::row() const {
  std::wstring row = tfmt::format(L"{0w8arf0b16x} ", offset_);
  std::wstring characters;
  for (std::size_t i = 0; i < row_.size(); ++i) {
    row += tfmt::format(L"{0?<} {0?>} {1w2arf0b16x}", i == kBytesInRow / 2,
                        std::to_integer<std::uint32_t>(row_[i]));
    characters += ascii(row_[i]);
  }
  row.resize(kAsciiColumn, L' ');
  return row + L"|" + characters + L"|";
}

}  // namespace tarnwheel::client
