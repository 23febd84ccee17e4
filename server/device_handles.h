// Owners of SetupAPI handles.
#pragma once

#include "platform/unique_resource.h"
#include "platform/win32.h"

// After win32.h.
#include <setupapi.h>

namespace tarnwheel {

struct device_set_traits {
  using pointer = HDEVINFO;
  static pointer invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(pointer set) noexcept { ::SetupDiDestroyDeviceInfoList(set); }
};
using unique_device_set = Tamrin::unique_resource<device_set_traits>;

// A device's registry key: unlike for other keys, failure is INVALID_HANDLE_VALUE.
struct device_key_traits {
  using pointer = HKEY;
  static pointer invalid() noexcept { return static_cast<HKEY>(INVALID_HANDLE_VALUE); }
  static void close(pointer key) noexcept { ::RegCloseKey(key); }
};
using unique_device_key = Tamrin::unique_resource<device_key_traits>;

}  // namespace tarnwheel
