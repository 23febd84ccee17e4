// The path of this program.
#pragma once

#include <string>

namespace tarnwheel {

// Empty, with the reason as the last error, when the path does not fit in MAX_PATH characters.
[[nodiscard]] std::wstring executable_path();

}  // namespace tarnwheel
