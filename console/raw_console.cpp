#include "console/raw_console.h"

#include "async/errors.h"
#include "console/print.h"

namespace console {
namespace {

constexpr DWORD kPlainOutput = ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT;
constexpr DWORD kTerminal = kPlainOutput | ENABLE_VIRTUAL_TERMINAL_PROCESSING;

bool is_console(DWORD stream) noexcept {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(stream), &mode) != FALSE;
}

}  // namespace

console_mode::console_mode(HANDLE console) : console_(console) {
  ostra::details::check_bool(::GetConsoleMode(console_, &former_));
}

bool raw_console::is_there() noexcept {
  return is_console(STD_INPUT_HANDLE) && is_console(STD_OUTPUT_HANDLE);
}

raw_console::raw_console(interrupt& stop) : stop_(stop) {
  // This also turns ENABLE_QUICK_EDIT_MODE off: a selection with the mouse would stop the output.
  if (!input_mode_.set(ENABLE_EXTENDED_FLAGS))
    ostra::details::throw_last_error();
  // A line feed from a device only moves down. Older consoles lack that flag, or all sequences.
  supports_sequences_ =
      output_mode_.set(kTerminal | DISABLE_NEWLINE_AUTO_RETURN) || output_mode_.set(kTerminal);
  if (!supports_sequences_)
    static_cast<void>(output_mode_.set(kPlainOutput));
  ::FlushConsoleInputBuffer(input_);
  stop_.set_ctrl_c_as_key(true);
}

raw_console::~raw_console() {
  stop_.set_ctrl_c_as_key(false);
  // The device may have left colours on.
  print(standard_stream::output, supports_sequences_ ? L"\x1B[0m\r\n" : L"\r\n");
}

}  // namespace console
