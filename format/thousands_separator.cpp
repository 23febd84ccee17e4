#include "format/thousands_separator.h"

#include <array>
#include <string>

#include "platform/win32.h"

namespace tfmt::details {
namespace {

std::wstring read_separator() {
  std::array<wchar_t, kMaxSeparator + 1> text{};
  const int length = ::GetLocaleInfoEx(LOCALE_NAME_USER_DEFAULT, LOCALE_STHOUSAND, text.data(),
                                       static_cast<int>(text.size()));
  return length > 0 ? std::wstring(text.data()) : std::wstring();
}

}  // namespace

std::wstring_view thousands_separator() {
  static const std::wstring separator = read_separator();
  return separator;
}

}  // namespace tfmt::details
