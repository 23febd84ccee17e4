// Conversion between UTF-8 and UTF-16.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace console {

[[nodiscard]] std::vector<std::byte> to_utf8(std::wstring_view text);

// Invalid UTF-8 becomes U+FFFD.
[[nodiscard]] std::wstring from_utf8(std::span<const std::byte> bytes);

// Decodes text that arrives in pieces, each of which may end in the middle of a character.
class utf8_stream {
 public:
  [[nodiscard]] std::wstring decode(std::span<const std::byte> bytes);

 private:
  std::vector<std::byte> incomplete_;  // the bytes of a character that is not yet complete
};

}  // namespace console
