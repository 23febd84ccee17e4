// Text on the process's standard output and standard error.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace console {

enum class standard_stream : DWORD { output = STD_OUTPUT_HANDLE, error = STD_ERROR_HANDLE };

// Writes `text` unbuffered: to a console as UTF-16, so that no character depends on the code page;
// to a file or pipe as UTF-8 with CR LF line ends. A line end may be given as LF or CR LF. Blocks
// until everything is written. Returns the Win32 error that ended the write, if any; the rest of
// the text is then discarded. A no-op in a process without such a stream. Throws std::bad_alloc.
DWORD print(standard_stream stream, std::wstring_view text);

}  // namespace console
