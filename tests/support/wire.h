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

inline Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes result;
  for (const Bytes& part : parts)
    result.insert(result.end(), part.begin(), part.end());
  return result;
}

inline Bytes U16(std::uint32_t value) {  // the low 16 bits
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
}

inline Bytes U32(std::uint32_t value) {
  return Join({U16(value), U16(value >> 16)});
}

// The little-endian number at `offset`, which must lie within `bytes`.
inline std::uint16_t U16At(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes.at(offset) | bytes.at(offset + 1) << 8);
}

inline std::uint32_t U32At(const Bytes& bytes, std::size_t offset) {
  return U16At(bytes, offset) | static_cast<std::uint32_t>(U16At(bytes, offset + 2)) << 16;
}

inline Bytes ToBytes(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

// Count and bytes.
inline Bytes Vector(const Bytes& content) {
  return Join({U32(static_cast<std::uint32_t>(content.size())), content});
}

inline Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input) {
  return Join({U32(code), U32(output_size), Vector(input)});
}

// In milliseconds; writes without limit.
inline Bytes ReadTimeouts(std::uint32_t interval, std::uint32_t multiplier,
                          std::uint32_t constant) {
  return Join({U32(interval), U32(multiplier), U32(constant), Bytes(8)});
}

struct Message {
  std::uint32_t call;
  std::uint16_t code;
  std::uint16_t method;
  Bytes payload;

  bool operator==(const Message&) const = default;
};

inline Bytes Header(std::uint32_t call, std::uint16_t code, std::uint16_t method,
                    std::uint32_t length) {
  return Join({U32(call), U16(code), U16(method), U32(length)});
}

inline Bytes Encode(const Message& message) {
  const auto length = static_cast<std::uint32_t>(message.payload.size());
  return Join({Header(message.call, message.code, message.method, length), message.payload});
}

// Bytes of which no two neighbouring stretches are alike.
inline Bytes Pattern(std::size_t size, std::uint32_t state = 1) {
  Bytes result(size);
  for (auto& byte : result) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return result;
}

}  // namespace system_test
