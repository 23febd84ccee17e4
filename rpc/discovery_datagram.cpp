#include "rpc/discovery_datagram.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "async/errors.h"
#include "rpc/marshalling.h"

namespace tether {
namespace {

constexpr std::size_t kMaxName = 255;  // of a full DNS name, in characters

bool is_name_character(wchar_t c) noexcept {
  constexpr wchar_t kFirstBeyondAscii = 0xA0;  // U+0080 to U+009F are control characters
  return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') ||
         c == L'-' || c == L'_' || c == L'.' || c >= kFirstBeyondAscii;
}

}  // namespace

bool is_computer_name(std::wstring_view name) noexcept {
  if (name == L".")
    return true;
  return !name.empty() && name.size() <= kMaxName && name.front() != L'.' &&
         std::ranges::all_of(name, is_name_character);
}

std::wstring computer_name() {
  std::wstring name(260, L'\0');
  auto size = static_cast<DWORD>(name.size());
  while (!::GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size)) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_MORE_DATA)
      ostra::details::throw_win32(error);
    name.resize(size);
  }
  name.resize(size);
  return name;
}

std::vector<std::byte> make_datagram(std::wstring_view name) {
  const auto count = static_cast<std::uint32_t>(name.size());
  const std::size_t name_size = name.size() * sizeof(wchar_t);
  std::vector<std::byte> datagram(sizeof count + name_size);
  std::memcpy(datagram.data(), &count, sizeof count);
  std::memcpy(datagram.data() + sizeof count, name.data(), name_size);
  return datagram;
}

std::wstring name_in(std::span<const std::byte> datagram) {
  std::wstring name = payload_reader(datagram).read_string();
  if (!is_computer_name(name))
    throw ostra::hresult_error(kMalformedPayload);
  return name;
}

}  // namespace tether
