#include "client/utf8.h"

#include "platform/win32.h"

namespace tarnwheel::client {

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

}  // namespace tarnwheel::client
