// A device control as an overlapped call.
#pragma once

#include <cstddef>
#include <span>

#include "platform/win32.h"

#include <winioctl.h>  // needs <windows.h> before it

namespace ostra {

// DeviceIoControl, for io_call. Both buffers must live until the await has completed.
struct device_control {
  DWORD code;
  std::span<const std::byte> input;
  std::span<std::byte> output;

  DWORD operator()(HANDLE device, OVERLAPPED* overlapped) const noexcept {
    // DeviceIoControl takes its input through a pointer to non-const, but does not write to it.
    void* const in = const_cast<std::byte*>(input.data());
    return ::DeviceIoControl(device, code, in, static_cast<DWORD>(input.size()), output.data(),
                             static_cast<DWORD>(output.size()), nullptr, overlapped)
               ? ERROR_SUCCESS
               : ::GetLastError();
  }
};

}  // namespace ostra
