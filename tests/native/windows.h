// A stand-in for the part of Windows that async/ uses, so that async/ and the libraries built on it
// can be built on Linux, where the sanitizers are. It has only the names that these use, with the
// meaning that Microsoft documents. platform/win32.h finds it as <windows.h>.
#pragma once

#include "handles.h"
#include "thread_pool.h"
#include "types.h"
