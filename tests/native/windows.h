// A stand-in for the part of Windows that async/ uses, so that it and what stands on it can be built
// on Linux, where the sanitizers are. Only what they name is here, with the meaning that Microsoft
// documents. Found as <windows.h> by platform/win32.h.
#pragma once

#include "handles.h"
#include "thread_pool.h"
#include "types.h"
