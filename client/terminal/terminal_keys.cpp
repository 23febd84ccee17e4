#include "client/terminal/terminal_keys.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr std::wstring_view kPrefix = L"\x1D";  // Ctrl+]
constexpr std::wstring_view kEscape = L"\x1B";
constexpr std::wstring_view kDelete = L"\x7F";

// Keys without a character. Their sequences end in a letter, or in a number and a tilde; modifiers
// precede the last character: ESC [ A, ESC [ 1 ; 5 A; ESC [ 3 ~, ESC [ 3 ; 5 ~.
struct named_key {
  WORD code;
  std::uint32_t number;  // 1 for those that end in a letter
  wchar_t last;
  wchar_t first = L'[';  // without modifiers
};

constexpr named_key kNamedKeys[] = {
    {VK_UP, 1, L'A'},       {VK_DOWN, 1, L'B'},     {VK_RIGHT, 1, L'C'},    {VK_LEFT, 1, L'D'},
    {VK_HOME, 1, L'H'},     {VK_END, 1, L'F'},      {VK_INSERT, 2, L'~'},   {VK_DELETE, 3, L'~'},
    {VK_PRIOR, 5, L'~'},    {VK_NEXT, 6, L'~'},     {VK_F1, 1, L'P', L'O'}, {VK_F2, 1, L'Q', L'O'},
    {VK_F3, 1, L'R', L'O'}, {VK_F4, 1, L'S', L'O'}, {VK_F5, 15, L'~'},      {VK_F6, 17, L'~'},
    {VK_F7, 18, L'~'},      {VK_F8, 19, L'~'},      {VK_F9, 20, L'~'},      {VK_F10, 21, L'~'},
    {VK_F11, 23, L'~'},     {VK_F12, 24, L'~'},
};

struct command_key {
  std::wstring_view text;
  key_command command;
};

constexpr command_key kCommands[] = {
    {kPrefix, key_command::send},    {L"q", key_command::leave},
    {L"b", key_command::send_break}, {L"d", key_command::toggle_dtr},
    {L"r", key_command::toggle_rts}, {L"s", key_command::show_state},
    {L"f", key_command::send_file},
};

struct modifiers {
  explicit modifiers(DWORD state)
      : shift((state & SHIFT_PRESSED) != 0),
        alt((state & (LEFT_ALT_PRESSED | RIGHT_ALT_PRESSED)) != 0),
        ctrl((state & (LEFT_CTRL_PRESSED | RIGHT_CTRL_PRESSED)) != 0) {}

  // The parameter that encodes them in escape sequences; 1 for none.
  [[nodiscard]] std::uint32_t number() const {
    return 1u + (shift ? 1u : 0u) + (alt ? 2u : 0u) + (ctrl ? 4u : 0u);
  }

  bool shift;
  bool alt;
  bool ctrl;
};

std::wstring sequence_of(const named_key& key, const modifiers& held) {
  const bool modified = held.number() != 1;
  if (!modified && key.number == 1)
    return std::wstring(kEscape) + key.first + key.last;
  return tfmt::format(L"{0}[{1}{2?<};{3}{2?>}{4}", kEscape, key.number, modified, held.number(),
                      std::wstring(1, key.last));
}

// The text of a key regardless of Alt; empty if it has none.
std::wstring characters_of(const KEY_EVENT_RECORD& key, const modifiers& held) {
  const wchar_t character = key.uChar.UnicodeChar;
  switch (key.wVirtualKeyCode) {
    case VK_BACK:
      return std::wstring(held.ctrl ? L"\b" : kDelete);
    case VK_TAB:
      return std::wstring(held.shift ? L"\x1B[Z" : L"\t");
    case VK_ESCAPE:
      return std::wstring(kEscape);
    case VK_SPACE:
      return std::wstring(1, held.ctrl ? L'\0' : L' ');
    case L'2':  // Ctrl+@
      return character != 0 || held.ctrl ? std::wstring(1, character) : std::wstring();
    default:
      return character != 0 ? std::wstring(1, character) : std::wstring();
  }
}

}  // namespace

std::wstring text_of(const KEY_EVENT_RECORD& key) {
  // A character that was composed with Alt and digits arrives when Alt is released.
  if (!key.bKeyDown)
    return key.wVirtualKeyCode == VK_MENU && key.uChar.UnicodeChar != 0
               ? std::wstring(1, key.uChar.UnicodeChar)
               : std::wstring();
  const modifiers held(key.dwControlKeyState);
  const auto* const named = std::ranges::find(kNamedKeys, key.wVirtualKeyCode, &named_key::code);
  if (named != std::end(kNamedKeys) && key.uChar.UnicodeChar == 0)
    return sequence_of(*named, held);
  const std::wstring text = characters_of(key, held);
  // Alt and Ctrl together are AltGr, which has made the character already.
  const bool prefixed = held.alt && !held.ctrl && !text.empty();
  return prefixed ? std::wstring(kEscape) + text : text;
}

std::optional<std::vector<std::wstring>> read_keys(HANDLE console) {
  std::array<INPUT_RECORD, 128> records;
  DWORD count = 0;
  if (!::ReadConsoleInputW(console, records.data(), static_cast<DWORD>(records.size()), &count))
    return std::nullopt;
  std::vector<std::wstring> keys;
  for (const INPUT_RECORD& record : std::span(records).first(count)) {
    if (record.EventType != KEY_EVENT)
      continue;
    if (const std::wstring text = text_of(record.Event.KeyEvent); !text.empty())
      keys.insert(keys.end(), record.Event.KeyEvent.wRepeatCount, text);
  }
  return keys;
}

key_command command_keys::feed(std::wstring_view text) noexcept {
  const bool is_prefix = text == kPrefix;
  if (!prefixed_) {
    prefixed_ = is_prefix;
    return is_prefix ? key_command::none : key_command::send;
  }
  prefixed_ = false;
  const auto* const found = std::ranges::find(kCommands, text, &command_key::text);
  return found == std::end(kCommands) ? key_command::show_keys : found->command;
}

bool leave_key::wait(std::chrono::milliseconds time) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + time;
  for (;;) {
    const auto left =
        std::max(std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()),
                 std::chrono::milliseconds::zero());
    const HANDLE signals[] = {stop_.event(), keys_};
    switch (::WaitForMultipleObjects(2, signals, FALSE, static_cast<DWORD>(left.count()))) {
      case WAIT_OBJECT_0:
        return true;
      case WAIT_OBJECT_0 + 1:
        break;
      default:
        return false;
    }
    const auto struck = read_keys(keys_);
    if (!struck)
      return true;  // the console has gone
    for (const auto& key : *struck) {
      if (commands_.feed(key) == key_command::leave)
        return true;
    }
  }
}

std::wstring_view command_keys::help() noexcept {
  return L"Ctrl+] and then\r\n"
         L"  q       leaves\r\n"
         L"  b       sends a break\r\n"
         L"  d, r    turn DTR, RTS on and off\r\n"
         L"  s       shows the state of the line\r\n"
         L"  f       sends a file, or stops sending it\r\n"
         L"  Ctrl+]  sends Ctrl+] itself\r\n"
         L"  ?       shows these keys";
}

}  // namespace tarnwheel::client
