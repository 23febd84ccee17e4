// The system's own words for an error.
#pragma once

#include <string>

#include "platform/win32.h"

namespace console {

// In the user's language, without the full stop; empty when the system knows nothing of the code.
[[nodiscard]] std::wstring system_text(HRESULT code);

}  // namespace console
