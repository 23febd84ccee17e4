// The bytes of requests and replies. Written for the tests alone, so that they do not share a
// mistake with the program's own encoding.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string_view>
#include <vector>

namespace system_test {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kHeaderSize = 12;

// Method numbers.
constexpr std::uint16_t kEnumeratePorts = 0;
constexpr std::uint16_t kOpenPort = 1;
constexpr std::uint16_t kIoControl = 2;
constexpr std::uint16_t kWrite = 3;
constexpr std::uint16_t kRead = 4;

struct Message {
  std::uint32_t call;
  std::uint16_t code;
  std::uint16_t method;
  Bytes payload;

  bool operator==(const Message&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Message& message);

Bytes U16(std::uint32_t value);  // the low 16 bits
Bytes U32(std::uint32_t value);
Bytes Vector(const Bytes& content);  // count and bytes
Bytes Text(std::wstring_view text);  // count and UTF-16 units
Bytes Join(std::initializer_list<Bytes> parts);

Bytes Header(std::uint32_t call, std::uint16_t code, std::uint16_t method, std::uint32_t length);
Bytes Encode(const Message& message);

// The little-endian number at `offset`, which must lie within `bytes`.
std::uint16_t U16At(const Bytes& bytes, std::size_t offset);
std::uint32_t U32At(const Bytes& bytes, std::size_t offset);

Bytes ToBytes(std::string_view text);

// Bytes of which no two neighbouring stretches are alike.
Bytes Pattern(std::size_t size);

}  // namespace system_test
