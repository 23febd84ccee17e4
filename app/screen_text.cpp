#include "app/screen_text.h"

#include <string>

#include "app/command_line/command_line_help.h"
#include "app/version_info.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel {
namespace {

using console::print;
using console::standard_stream;

constexpr std::size_t kWidthWithoutConsole = 80;

std::size_t console_width() noexcept {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (!::GetConsoleScreenBufferInfo(::GetStdHandle(STD_OUTPUT_HANDLE), &info))
    return kWidthWithoutConsole;
  return static_cast<std::size_t>(info.dwSize.X);
}

}  // namespace

void print_logo() {
  const auto version = read_product_version();
  print(standard_stream::output,
        tfmt::format(L"Quorvane Tarnwheel Server\nVersion {0}.{1w2arf0}.{2w2arf0}.{3w4arf0}\n\n",
                     version.major, version.minor, version.revision, version.build));
}

void print_help(const Tamrin::command_line& line) {
  print(standard_stream::output,
        L"Command-line parameters:\n\n" + Tamrin::format_help(line, console_width()) + L"\n");
}

void print_error(std::wstring_view message) {
  print(standard_stream::error, std::wstring(message) + L"\n");
}

DWORD report_error(std::wstring_view pattern, DWORD error) {
  print_error(tfmt::format(pattern, error));
  return error;
}

void print_start_error(HRESULT code) {
  print(standard_stream::error, tfmt::format(L"Error starting server {0ub016xp}\n", code));
}

}  // namespace tarnwheel
