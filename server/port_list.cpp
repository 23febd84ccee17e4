#include "server/port_list.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "server/device_handles.h"

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

std::uint32_t read_port_number(HKEY device_key) {
  DWORD size = 0;
  if (::RegQueryValueExW(device_key, L"PortName", nullptr, nullptr, nullptr, &size) !=
      ERROR_SUCCESS) {
    return 0;
  }
  DWORD type = REG_NONE;
  std::vector<std::byte> value(size);
  if (::RegQueryValueExW(device_key, L"PortName", nullptr, &type,
                         reinterpret_cast<BYTE*>(value.data()), &size) != ERROR_SUCCESS) {
    return 0;
  }
  // Without a buffer, for an empty value, the call gives the size of what is there by now.
  return port_number(type, std::span(value).first(std::min<std::size_t>(size, value.size())));
}

std::wstring read_friendly_name(HDEVINFO set, SP_DEVINFO_DATA& device) {
  DWORD size = 0;
  ::SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME, nullptr, nullptr, 0, &size);
  std::vector<std::byte> value(size);
  if (value.empty() ||
      !::SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME, nullptr,
                                           reinterpret_cast<BYTE*>(value.data()), size, nullptr)) {
    return {};
  }
  return registry_text(value);
}

std::uint32_t number_of(HDEVINFO set, SP_DEVINFO_DATA& device) {
  const unique_device_key key(
      ::SetupDiOpenDevRegKey(set, &device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ));
  return key ? read_port_number(key.get()) : 0;
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

std::vector<port_entry> present_ports() {
  std::vector<port_entry> ports;
  const unique_device_set set(::SetupDiGetClassDevsExW(&kComPortInterface, nullptr, nullptr,
                                                       DIGCF_PRESENT | DIGCF_DEVICEINTERFACE,
                                                       nullptr, nullptr, nullptr));
  if (!set)
    return ports;
  SP_DEVINFO_DATA device = {};
  device.cbSize = sizeof(device);
  for (DWORD index = 0; ::SetupDiEnumDeviceInfo(set.get(), index, &device); ++index) {
    const std::uint32_t number = number_of(set.get(), device);
    if (number != 0)
      ports.push_back({number, read_friendly_name(set.get(), device)});
  }
  std::stable_sort(ports.begin(), ports.end(), [](const port_entry& left, const port_entry& right) {
    return left.number < right.number;
  });
  return ports;
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
