#include "console/system_text.h"

#include <array>
#include <string_view>

namespace console {

std::wstring system_text(HRESULT code) {
  const auto id =
      static_cast<DWORD>(HRESULT_FACILITY(code) == FACILITY_WIN32 ? HRESULT_CODE(code) : code);
  std::array<wchar_t, 512> buffer;
  const DWORD size = ::FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, id, 0, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
  const std::wstring_view text(buffer.data(), size);
  return std::wstring(text.substr(0, text.find_last_not_of(L" .\r\n") + 1));
}

}  // namespace console
