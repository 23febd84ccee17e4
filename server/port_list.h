// The names of serial ports, and the list of those that are present and shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace tarnwheel {

struct port_entry {
  std::uint32_t number = 0;  // the n of COMn, never 0
  std::wstring friendly_name;

  [[nodiscard]] bool operator==(const port_entry&) const = default;
};

// The text of a registry string: `value` in bytes, with or without a terminating zero.
[[nodiscard]] std::wstring registry_text(std::span<const std::byte> value);

// The number in the value "PortName" of a device's hardware key, of registry type `type`: the
// digits that follow the first three characters, whatever these are. 0 when there are none, when
// the number does not fit, or when the value is not a string.
[[nodiscard]] std::uint32_t port_number(DWORD type, std::span<const std::byte> value);

// Both lists are ascending. An empty `shared` shares everything.
[[nodiscard]] std::vector<port_entry> shared_present_ports(
    const std::vector<port_entry>& present, const std::vector<std::uint32_t>& shared);
[[nodiscard]] bool is_shared(const std::vector<std::uint32_t>& shared,
                             std::uint32_t number) noexcept;

}  // namespace tarnwheel
