// The serial ports of this machine.
#pragma once

#include <vector>

#include "platform/win32.h"
#include "server/port_list.h"

namespace tarnwheel {

// The device interface class of COM ports, GUID_DEVINTERFACE_COMPORT.
inline constexpr GUID kComPortInterface = {
    0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};

// The ports whose devices are present, ascending by number; two devices that claim the same number
// are both listed. A device that cannot be read is left out, so at worst the list is empty.
[[nodiscard]] std::vector<port_entry> present_ports();

}  // namespace tarnwheel
