// The console as a terminal.
#pragma once

#include "console/interrupt.h"
#include "platform/win32.h"

namespace console {

// A mode of one of the console's two handles, for as long as this lives.
class console_mode {
 public:
  // Throws hresult_error when the handle is not that of a console.
  explicit console_mode(HANDLE console);
  console_mode(const console_mode&) = delete;
  console_mode& operator=(const console_mode&) = delete;
  ~console_mode() { ::SetConsoleMode(console_, former_); }

  // False when the console does not know the mode.
  [[nodiscard]] bool set(DWORD mode) noexcept { return ::SetConsoleMode(console_, mode) != FALSE; }

 private:
  const HANDLE console_;
  DWORD former_ = 0;
};

// While it lives, keys come one by one and unchanged, Ctrl+C among them, and the screen obeys
// escape sequences. The destructor brings back what was before. Keys that were struck before are
// dropped.
class raw_console {
 public:
  // True when standard input and standard output are a console.
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
  bool obeys_sequences_ = true;
};

}  // namespace console
