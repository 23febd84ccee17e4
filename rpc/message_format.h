// The wire format of a message: a header of 12 bytes, then `length` bytes of payload. All integers
// are little-endian, and there is no padding.
//
// A reply repeats the call, code and method of its request. So a message with the receiver's own
// code is a reply to one of the receiver's calls, and one with any other code is a request, except
// kNoConnection, which marks neither.
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

// A message crosses the pipe in pieces of this size; the last one may be shorter.
inline constexpr std::uint32_t kPiece = 0x10000;

// The longest payload that either end sends or accepts: 16 MiB of data plus 1 MiB for what
// accompanies it.
inline constexpr std::uint32_t kMaxPayload = 17 * 1024 * 1024;

}  // namespace tether
