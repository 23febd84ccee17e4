#include "tests/wire.h"

#include <iomanip>

namespace system_test {

std::ostream& operator<<(std::ostream& out, const Message& message) {
  out << "{call " << message.call << ", code " << message.code << ", method " << message.method
      << ", " << message.payload.size() << " bytes:" << std::hex << std::setfill('0');
  for (std::size_t i = 0; i < message.payload.size() && i < 32; ++i)
    out << ' ' << std::setw(2) << unsigned{message.payload[i]};
  return out << std::dec << '}';
}

Bytes U16(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
}

Bytes U32(std::uint32_t value) {
  return Join({U16(value), U16(value >> 16)});
}

Bytes Vector(const Bytes& content) {
  return Join({U32(static_cast<std::uint32_t>(content.size())), content});
}

Bytes Text(std::wstring_view text) {
  Bytes result = U32(static_cast<std::uint32_t>(text.size()));
  for (const wchar_t unit : text)
    result = Join({result, U16(unit)});
  return result;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes result;
  for (const Bytes& part : parts)
    result.insert(result.end(), part.begin(), part.end());
  return result;
}

Bytes Header(std::uint32_t call, std::uint16_t code, std::uint16_t method, std::uint32_t length) {
  return Join({U32(call), U16(code), U16(method), U32(length)});
}

Bytes Encode(const Message& message) {
  const auto length = static_cast<std::uint32_t>(message.payload.size());
  return Join({Header(message.call, message.code, message.method, length), message.payload});
}

std::uint16_t U16At(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes.at(offset) | bytes.at(offset + 1) << 8);
}

std::uint32_t U32At(const Bytes& bytes, std::size_t offset) {
  return U16At(bytes, offset) | static_cast<std::uint32_t>(U16At(bytes, offset + 2)) << 16;
}

Bytes ToBytes(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

Bytes Pattern(std::size_t size) {
  Bytes result(size);
  std::uint32_t state = 1;
  for (auto& byte : result) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return result;
}

}  // namespace system_test
