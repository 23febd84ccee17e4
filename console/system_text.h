// The system's message for an error code.
#pragma once

#include <string>

#include "platform/win32.h"

namespace console {

// In the user's language, without the final full stop; empty when the system has no message.
[[nodiscard]] std::wstring system_text(HRESULT code);

}  // namespace console
