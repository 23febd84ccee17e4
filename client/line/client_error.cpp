#include "client/line/client_error.h"

#include <algorithm>

#include "async/errors.h"
#include "console/system_text.h"
#include "format/format.h"

namespace tarnwheel::client {

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
  const std::wstring text = console::system_text(code);
  return client_error(tfmt::format(L"{0}: {1?<}{2}{1?|}failed{1?>}", subject, !text.empty(), text),
                      code, otherwise);
}

}  // namespace tarnwheel::client
