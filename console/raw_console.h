// The console as a terminal.
#pragma once

#include "console/interrupt.h"
#include "platform/win32.h"

namespace console {

// Changes the mode of a console handle; the destructor restores the former mode.
class console_mode {
 public:
  // Throws hresult_error when `console` is not a console handle.
  explicit console_mode(HANDLE console);
  console_mode(const console_mode&) = delete;
  console_mode& operator=(const console_mode&) = delete;
  ~console_mode() { ::SetConsoleMode(console_, former_); }

  // False when the console does not support the mode.
  [[nodiscard]] bool set(DWORD mode) noexcept { return ::SetConsoleMode(console_, mode) != FALSE; }

 private:
  const HANDLE console_;
  DWORD former_ = 0;
};

// While it lives, keys arrive one by one and unprocessed, Ctrl+C included, and the screen
// interprets escape sequences. Keys pressed before its construction are discarded. The destructor
// restores the former modes.
class raw_console {
 public:
  // True when both standard input and standard output are consoles.
  [[nodiscard]] static bool is_there() noexcept;

  // `stop` must outlive this. Throws hresult_error.
  explicit raw_console(interrupt& stop);
  raw_console(const raw_console&) = delete;
  raw_console& operator=(const raw_console&) = delete;
  ~raw_console();

  [[nodiscard]] HANDLE input() const noexcept { return input_; }

 private:
  interrupt& stop_;
  const HANDLE input_ = ::GetStdHandle(STD_INPUT_HANDLE);
  const HANDLE output_ = ::GetStdHandle(STD_OUTPUT_HANDLE);
  console_mode input_mode_{input_};
  console_mode output_mode_{output_};
  bool supports_sequences_ = true;
};

}  // namespace console
