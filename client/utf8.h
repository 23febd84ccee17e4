// Text on a serial line is UTF-8.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwheel::client {

[[nodiscard]] std::vector<std::byte> to_utf8(std::wstring_view text);

// What is not UTF-8 becomes U+FFFD.
[[nodiscard]] std::wstring from_utf8(std::span<const std::byte> bytes);

}  // namespace tarnwheel::client
