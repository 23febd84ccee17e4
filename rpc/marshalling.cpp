#include "rpc/marshalling.h"

#include <cstring>
#include <limits>
#include <stdexcept>

#include "async/errors.h"

namespace tether {

static_assert(sizeof(wchar_t) == 2, "strings travel as UTF-16");

std::span<const std::byte> payload_reader::take(std::size_t size) {
  if (size > rest_.size())
    throw ostra::hresult_error(kMalformedPayload);
  const auto taken = rest_.first(size);
  rest_ = rest_.subspan(size);
  return taken;
}

std::uint32_t payload_reader::read_integer() {
  std::uint32_t value = 0;
  std::memcpy(&value, take(sizeof value).data(), sizeof value);
  return value;
}

std::vector<std::byte> payload_reader::read_bytes() {
  const auto bytes = take(read_integer());
  return {bytes.begin(), bytes.end()};
}

std::wstring payload_reader::read_string() {
  const std::size_t count = read_integer();
  const auto bytes = take(count * sizeof(wchar_t));
  std::wstring text(count, L'\0');
  std::memcpy(text.data(), bytes.data(), bytes.size());
  return text;
}

void payload_writer::write_integer(std::uint32_t value) {
  message_.append(&value, sizeof value);
}

void payload_writer::write_count(std::size_t count) {
  if (count > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("element count");
  write_integer(static_cast<std::uint32_t>(count));
}

void payload_writer::write_bytes(std::span<const std::byte> bytes) {
  write_count(bytes.size());
  message_.append(bytes.data(), bytes.size());
}

void payload_writer::write_string(std::wstring_view text) {
  write_count(text.size());
  message_.append(text.data(), text.size() * sizeof(wchar_t));
}

}  // namespace tether
