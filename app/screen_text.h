// Console output other than the log.
#pragma once

#include <string_view>

#include "app/command_line/command_line.h"
#include "platform/win32.h"

namespace tarnwheel {

// "Quorvane Tarnwheel Server" and the version, on standard output.
void print_logo();

// The command-line parameters, wrapped to the console's width, on standard output.
void print_help(const Tamrin::command_line& line);

// One line on standard error.
void print_error(std::wstring_view message);

// The same for a pattern that takes the code as {0}; returns the code.
DWORD report_error(std::wstring_view pattern, DWORD error);

// "Error starting server" with the code, on standard error.
void print_start_error(HRESULT code);

}  // namespace tarnwheel
