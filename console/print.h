// Text on the process's standard output and standard error.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace console {

enum class standard_stream : DWORD { output = STD_OUTPUT_HANDLE, error = STD_ERROR_HANDLE };

// Writes `text`, unbuffered: as UTF-16 to a console, so that no character depends on its code page,
// as UTF-8 with CR LF line ends to a file or pipe. A line end may be given as LF or CR LF. Blocks
// until it is written. Gives the Win32 error with which the stream refuses the text, the rest of which
// is discarded then; a process without such a stream writes nothing. Throws std::bad_alloc.
DWORD print(standard_stream stream, std::wstring_view text);

}  // namespace console
