#include "console/print.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>

#include "console/utf8.h"

namespace console {
namespace {

constexpr std::size_t kPiece = 8192;  // a console accepts about 32,000 code units at a time

DWORD write_console(HANDLE console, std::wstring_view text) {
  while (!text.empty()) {
    DWORD written = 0;
    auto size = std::min(text.size(), kPiece);
    if (size < text.size() && IS_HIGH_SURROGATE(text[size - 1]))
      --size;  // a surrogate pair is shown as one character only when written whole
    if (!::WriteConsoleW(console, text.data(), static_cast<DWORD>(size), &written, nullptr))
      return ::GetLastError();
    if (written == 0)
      return ERROR_WRITE_FAULT;
    text.remove_prefix(written);
  }
  return ERROR_SUCCESS;
}

DWORD write_bytes(HANDLE file, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto piece = static_cast<DWORD>(std::min(bytes.size(), kPiece));
    if (!::WriteFile(file, bytes.data(), piece, &written, nullptr))
      return ::GetLastError();
    if (written == 0)
      return ERROR_WRITE_FAULT;
    bytes = bytes.subspan(written);
  }
  return ERROR_SUCCESS;
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

}  // namespace

DWORD print(standard_stream stream, std::wstring_view text) {
  const HANDLE handle = ::GetStdHandle(static_cast<DWORD>(stream));
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE)
    return ERROR_SUCCESS;
  DWORD mode = 0;
  if (::GetConsoleMode(handle, &mode))
    return write_console(handle, text);
  return write_bytes(handle, to_utf8(with_crlf(text)));
}

}  // namespace console
