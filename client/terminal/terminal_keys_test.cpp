#include "client/terminal/terminal_keys.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

// The system tests cover keys struck in a real terminal.
TEST(TextOfKey, IsWhatATerminalSends) {
  constexpr DWORD alt_gr = LEFT_CTRL_PRESSED | RIGHT_ALT_PRESSED;
  const struct {
    WORD code;
    wchar_t character;
    DWORD state;
    std::wstring text;
    BOOL down = TRUE;
  } rows[] = {
      {'A', L'a', 0, L"", FALSE},  // released
      {'C', L'\x03', LEFT_CTRL_PRESSED, L"\x03"},
      {'Q', L'@', alt_gr, L"@"},
      {VK_BACK, L'\b', 0, L"\x7F"},
      {VK_BACK, L'\x7F', RIGHT_CTRL_PRESSED, L"\b"},
      {VK_TAB, L'\t', SHIFT_PRESSED, L"\x1B[Z"},
      {VK_ESCAPE, 0, 0, L"\x1B"},
      {VK_SPACE, L' ', LEFT_CTRL_PRESSED, std::wstring(1, L'\0')},
      {'2', 0, LEFT_CTRL_PRESSED | SHIFT_PRESSED, std::wstring(1, L'\0')},
      {VK_DOWN, 0, 0, L"\x1B[B"},
      {VK_RIGHT, 0, 0, L"\x1B[C"},
      {VK_LEFT, 0, LEFT_CTRL_PRESSED, L"\x1B[1;5D"},
      {VK_HOME, 0, ENHANCED_KEY | SHIFT_PRESSED, L"\x1B[1;2H"},
      {VK_DELETE, 0, 0, L"\x1B[3~"},
      {VK_F4, 0, SHIFT_PRESSED, L"\x1B[1;2S"},
      {VK_F12, 0, 0, L"\x1B[24~"},
      {VK_MENU, L'\xE4', 0, L"\xE4", FALSE},  // composed with Alt and digits
  };
  for (const auto& [code, character, state, text, down] : rows) {
    KEY_EVENT_RECORD key = {down, 1, code, 0, {character}, state};
    EXPECT_EQ(text_of(key), text) << "key " << code << " state " << state;
  }
}

// "]" stands for Ctrl+], and the letters of the result for the key_commands in order, "s" for send.
TEST(CommandKeys, FollowCtrlBracket) {
  command_keys commands;
  std::string found;
  for (const wchar_t key : std::wstring_view(L"qb]q]b]d]r]s]f]?b]]]q")) {
    const wchar_t text[] = {key == L']' ? L'\x1D' : key, L'\0'};
    found += "-slbdrifk"[static_cast<int>(commands.feed(text))];
  }
  EXPECT_EQ(found, "ss-l-b-d-r-i-f-ks-s-l");
}

}  // namespace
}  // namespace tarnwheel::client
