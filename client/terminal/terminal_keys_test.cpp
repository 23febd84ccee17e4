#include "client/terminal/terminal_keys.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

KEY_EVENT_RECORD Key(WORD code, wchar_t character, DWORD state = 0, BOOL down = TRUE) {
  KEY_EVENT_RECORD key = {};
  key.bKeyDown = down;
  key.wRepeatCount = 1;
  key.wVirtualKeyCode = code;
  key.uChar.UnicodeChar = character;
  key.dwControlKeyState = state;
  return key;
}

TEST(TextOfKey, IsWhatATerminalSends) {
  constexpr DWORD alt_gr = LEFT_CTRL_PRESSED | RIGHT_ALT_PRESSED;
  const struct {
    KEY_EVENT_RECORD key;
    std::wstring text;
  } rows[] = {
      {Key('A', L'a'), L"a"},
      {Key('A', L'a', 0, FALSE), L""},  // let go of
      {Key('C', L'\x03', LEFT_CTRL_PRESSED), L"\x03"},
      {Key('X', L'x', LEFT_ALT_PRESSED), L"\x1Bx"},
      {Key('Q', L'@', alt_gr), L"@"},
      {Key(0, L'\x6F22'), L"\x6F22"},
      {Key(VK_BACK, L'\b'), L"\x7F"},
      {Key(VK_BACK, L'\x7F', RIGHT_CTRL_PRESSED), L"\b"},
      {Key(VK_TAB, L'\t', SHIFT_PRESSED), L"\x1B[Z"},
      {Key(VK_ESCAPE, 0), L"\x1B"},
      {Key(VK_SPACE, L' ', LEFT_CTRL_PRESSED), std::wstring(1, L'\0')},
      {Key('2', 0, LEFT_CTRL_PRESSED | SHIFT_PRESSED), std::wstring(1, L'\0')},
      {Key(VK_UP, 0), L"\x1B[A"},
      {Key(VK_LEFT, 0, LEFT_CTRL_PRESSED), L"\x1B[1;5D"},
      {Key(VK_HOME, 0, ENHANCED_KEY | SHIFT_PRESSED), L"\x1B[1;2H"},
      {Key(VK_DELETE, 0), L"\x1B[3~"},
      {Key(VK_F4, 0, SHIFT_PRESSED), L"\x1B[1;2S"},
      {Key(VK_F12, 0), L"\x1B[24~"},
      {Key(VK_MENU, L'\xE4', 0, FALSE), L"\xE4"},  // composed with Alt and digits
  };
  for (const auto& row : rows) {
    EXPECT_EQ(text_of(row.key), row.text)
        << "key " << row.key.wVirtualKeyCode << " state " << row.key.dwControlKeyState;
  }
}

TEST(CommandKeys, AreThoseBehindCtrlBracket) {
  using enum key_command;
  const struct {
    std::vector<const wchar_t*> keys;
    std::vector<key_command> meanings;
  } rows[] = {
      {{L"q", L"b"}, {send, send}},
      {{L"\x1D", L"q"}, {none, leave}},
      {{L"\x1D", L"b", L"b"}, {none, send_break, send}},
      {{L"\x1D", L"d", L"\x1D", L"r"}, {none, toggle_dtr, none, toggle_rts}},
      {{L"\x1D", L"\x1B[A", L"\x1B[A"}, {none, show_keys, send}},
      {{L"\x1D", L"\x1D", L"\x1D", L"q"}, {none, send, none, leave}},
  };
  for (const auto& row : rows) {
    command_keys keys;
    std::vector<key_command> meanings;
    for (const auto* key : row.keys)
      meanings.push_back(keys.feed(key));
    EXPECT_EQ(meanings, row.meanings) << row.keys.size() << " keys, the last " << row.keys.back();
  }
}

}  // namespace
}  // namespace tarnwheel::client
