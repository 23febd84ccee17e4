// The device-control codes and structures of serial ports.
#pragma once

#include "platform/win32.h"

#include <winioctl.h>

// <ntddser.h> expects it from a header that only drivers include.
typedef LARGE_INTEGER PHYSICAL_ADDRESS;

#include <ntddser.h>
