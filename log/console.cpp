#include "log/console.h"

#include <algorithm>
#include <string>

namespace logging {
namespace {

constexpr std::size_t kPiece = 8192;  // a console takes about 32,000 units at a time

void write_console(HANDLE console, std::wstring_view text) {
  while (!text.empty()) {
    DWORD written = 0;
    const auto piece = static_cast<DWORD>(std::min(text.size(), kPiece));
    if (!::WriteConsoleW(console, text.data(), piece, &written, nullptr) || written == 0)
      return;
    text.remove_prefix(written);
  }
}

void write_bytes(HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto piece = static_cast<DWORD>(std::min(bytes.size(), kPiece));
    if (!::WriteFile(file, bytes.data(), piece, &written, nullptr) || written == 0)
      return;
    bytes.remove_prefix(written);
  }
}

std::wstring with_crlf(std::wstring_view text) {
  std::wstring result;
  result.reserve(text.size() + 16);
  for (const wchar_t unit : text) {
    if (unit == L'\n' && !result.ends_with(L'\r'))
      result += L'\r';
    result += unit;
  }
  return result;
}

std::string to_utf8(const std::wstring& text) {
  const auto length = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
  return result;
}

}  // namespace

void print(standard_stream stream, std::wstring_view text) {
  const HANDLE handle = ::GetStdHandle(static_cast<DWORD>(stream));
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE)
    return;
  DWORD mode = 0;
  if (::GetConsoleMode(handle, &mode)) {
    write_console(handle, text);
  } else {
    write_bytes(handle, to_utf8(with_crlf(text)));
  }
}

}  // namespace logging
