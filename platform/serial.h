// Device-control codes and structures for serial ports.
#pragma once

#include "platform/win32.h"

#include <winioctl.h>

// <ntddser.h> needs this type, which otherwise comes from a header for drivers only.
typedef LARGE_INTEGER PHYSICAL_ADDRESS;

#include <ntddser.h>
