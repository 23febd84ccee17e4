#include "client/line/client_error.h"

#include <algorithm>
#include <array>

#include "async/errors.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

// In the user's language, without the full stop; empty when the system knows nothing of the code.
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

}  // namespace

client_error::client_error(std::wstring_view cause, HRESULT code, failure kind)
    : message_(tfmt::format(L"{0} ({1ub016xp})", cause, code)), code_(code), kind_(kind) {}

client_error explain(HRESULT code, std::wstring_view subject, std::span<const known_cause> causes,
                     failure otherwise) {
  const auto matches = [code](const known_cause& row) {
    return ostra::details::to_hresult(row.error) == code;
  };
  const auto found = std::ranges::find_if(causes, matches);
  if (found != causes.end())
    return client_error(tfmt::format(found->pattern, subject), code, found->kind);
  const std::wstring text = system_text(code);
  return client_error(tfmt::format(L"{0}: {1?<}{2}{1?|}failed{1?>}", subject, !text.empty(), text),
                      code, otherwise);
}

}  // namespace tarnwheel::client
