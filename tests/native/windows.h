// A stand-in for the part of Windows that async/ and what stands on it use, so that they can be built
// on Linux, where the sanitizers are. Only what they name is here, with the meaning that Microsoft
// documents. Found as <windows.h> by platform/win32.h.
#pragma once

#include "handles.h"
#include "system.h"
#include "thread_pool.h"
