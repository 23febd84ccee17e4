// The layout of arguments and results in a payload: one after another, without tags or padding.
// Integers take 4 bytes; a byte vector, a wide string and a vector of records each begin with the
// 32-bit count of their elements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "rpc/message.h"

namespace tether {

// Thrown, as hresult_error, for a payload that ends too early or whose counts exceed it.
inline constexpr HRESULT kMalformedPayload =
    static_cast<HRESULT>(0x8007000D);  // ERROR_INVALID_DATA

// A cursor over a payload, which must outlive it. It never reads past the payload's end, and
// allocates no memory for a count before that many bytes are known to be there.
class payload_reader {
 public:
  explicit payload_reader(std::span<const std::byte> payload) noexcept : rest_(payload) {}

  std::uint32_t read_integer();
  std::vector<std::byte> read_bytes();
  std::wstring read_string();

 private:
  std::span<const std::byte> take(std::size_t size);

  std::span<const std::byte> rest_;
};

// Appends to the payload of a message. Throws std::length_error when the payload becomes too long.
class payload_writer {
 public:
  explicit payload_writer(message_t& message) noexcept : message_(message) {}

  void write_integer(std::uint32_t value);
  void write_bytes(std::span<const std::byte> bytes);
  void write_string(std::wstring_view text);

 private:
  void write_count(std::size_t count);

  message_t& message_;
};

}  // namespace tether
