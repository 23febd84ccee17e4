#include "client/terminal/terminal_screen.h"

#include <string>
#include <utility>

#include "client/terminal/hex_view.h"
#include "console/print.h"
#include "console/utf8.h"

namespace tarnwheel::client {
namespace {

void print_text(std::wstring_view text) {
  console::print(console::standard_stream::output, text);
}

// A terminal ignores the character NUL, whereas a console shows it.
std::wstring without_nul(std::wstring text) {
  std::erase(text, L'\0');
  return text;
}

}  // namespace

// Used by one item of work at a time.
struct terminal_screen::state {
  explicit state(view wanted) : kind(wanted) {}

  void show(std::span<const std::byte> bytes) {
    print_text(kind == view::hex ? hex.add(bytes) : without_nul(text.decode(bytes)));
  }

  // Whatever Enter sends, the cursor moves to a new line.
  void echo(std::span<const std::byte> bytes) {
    if (kind == view::hex)
      return show(bytes);
    std::wstring typed;
    for (const wchar_t unit : console::from_utf8(bytes)) {
      const bool ends = unit == L'\r' || unit == L'\n';
      if (unit != L'\n' || !typed.ends_with(L'\n'))
        typed += ends ? std::wstring(L"\r\n") : std::wstring(1, unit);
    }
    print_text(typed);
  }

  const view kind;
  console::utf8_stream text;
  hex_view hex;
};

terminal_screen::terminal_screen(view kind) : state_(std::make_shared<state>(kind)) {}

ostra::future<void> terminal_screen::show(std::vector<std::byte> bytes) {
  return work_.post([screen = state_, block = std::move(bytes)] { screen->show(block); });
}

void terminal_screen::echo(std::vector<std::byte> bytes) {
  static_cast<void>(
      work_.post([screen = state_, block = std::move(bytes)] { screen->echo(block); }));
}

void terminal_screen::note(std::wstring_view text) {
  print(L"\r\n[" + std::wstring(text) + L"]\r\n");
}

void terminal_screen::print(std::wstring_view text) {
  static_cast<void>(work_.post([own = std::wstring(text)] { print_text(own); }));
}

}  // namespace tarnwheel::client
