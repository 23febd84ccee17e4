// The bytes of a message on the pipe: a header of 12 bytes, then `length` bytes of payload. All
// integers are little-endian and nothing is padded.
//
// A reply carries the call, code and method of its request unchanged, so a message whose code is
// the receiver's own is a reply to one of the receiver's calls, and one with any other code is a
// request, except kNoConnection, which marks neither.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace tether {

struct message_header {
  std::uint32_t call = 0;    // chosen by the caller
  std::uint16_t code = 0;    // of the connection that made the request
  std::uint16_t method = 0;  // index of the method in its interface
  std::uint32_t length = 0;  // bytes of payload
};

static_assert(sizeof(message_header) == 12 && offsetof(message_header, code) == 4 &&
              offsetof(message_header, method) == 6 && offsetof(message_header, length) == 8);
static_assert(std::endian::native == std::endian::little, "headers and payloads are copied as is");

inline constexpr std::uint16_t kServerCode = 0;
inline constexpr std::uint16_t kNoConnection = 0xFFFF;

// A message crosses the pipe in pieces of this size; the last one is shorter.
inline constexpr std::uint32_t kPiece = 0x10000;

// The longest payload that either end sends or accepts: 16 MiB of data and room for what goes with
// them.
inline constexpr std::uint32_t kMaxPayload = 17 * 1024 * 1024;

}  // namespace tether
