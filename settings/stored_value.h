// The encoding of strings, numbers and bytes as values of a folder, the same in every storage.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace Tamrin::setman {

// A value as in the registry: REG_SZ, REG_DWORD, REG_QWORD or REG_BINARY, and its bytes.
struct stored_value {
  DWORD type = REG_BINARY;
  std::vector<std::byte> bytes;
};

[[nodiscard]] stored_value encode_string(std::wstring_view text);
[[nodiscard]] stored_value encode_value(const void* data, std::size_t size);

// Follow the rules of abstract_folder::read_string and read_value.
[[nodiscard]] std::optional<std::wstring> decode_string(const stored_value& value);
[[nodiscard]] bool decode_value(const stored_value& value, void* data, std::size_t size) noexcept;

}  // namespace Tamrin::setman
