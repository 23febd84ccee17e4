#include "server/port_list.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

namespace tarnwheel {
namespace {

constexpr std::size_t kPrefixLength = 3;

std::uint32_t parse_number(std::wstring_view name) noexcept {
  std::uint64_t number = 0;
  for (std::size_t i = kPrefixLength; i < name.size(); ++i) {
    if (name[i] < L'0' || name[i] > L'9')
      break;
    number = number * 10 + static_cast<std::uint64_t>(name[i] - L'0');
    if (number > std::numeric_limits<std::uint32_t>::max())
      return 0;
  }
  return static_cast<std::uint32_t>(number);
}

}  // namespace

std::wstring registry_text(std::span<const std::byte> value) {
  std::wstring text(value.size() / sizeof(wchar_t), L'\0');
  if (!text.empty())
    std::memcpy(text.data(), value.data(), text.size() * sizeof(wchar_t));
  text.resize(std::min(text.find(L'\0'), text.size()));
  return text;
}

std::uint32_t port_number(DWORD type, std::span<const std::byte> value) {
  if (type != REG_SZ && type != REG_EXPAND_SZ)
    return 0;
  return parse_number(registry_text(value));
}

std::vector<port_entry> shared_present_ports(const std::vector<port_entry>& present,
                                             const std::vector<std::uint32_t>& shared) {
  if (shared.empty())
    return present;
  std::vector<port_entry> result;
  auto port = present.begin();
  auto number = shared.begin();
  while (port != present.end() && number != shared.end()) {
    if (port->number < *number) {
      ++port;
    } else if (*number < port->number) {
      ++number;
    } else {
      result.push_back(*port++);
      ++number;
    }
  }
  return result;
}

bool is_shared(const std::vector<std::uint32_t>& shared, std::uint32_t number) noexcept {
  return shared.empty() || std::binary_search(shared.begin(), shared.end(), number);
}

}  // namespace tarnwheel
