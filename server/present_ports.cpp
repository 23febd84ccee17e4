#include "server/present_ports.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>

#include "server/device_handles.h"

namespace tarnwheel {
namespace {

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
  // Without a buffer, for a value that was empty, the call returns the size that it has now.
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

}  // namespace tarnwheel
