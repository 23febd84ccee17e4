#include "client/terminal/terminal_keys.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

TEST(TextOfKey, IsWhatATerminalSends) {
  constexpr DWORD alt_gr = LEFT_CTRL_PRESSED | RIGHT_ALT_PRESSED;
  const struct {
    WORD code;
    wchar_t character;
    DWORD state;
    std::wstring text;
    BOOL down = TRUE;
  } rows[] = {
      {'A', L'a', 0, L"a"},
      {'A', L'a', 0, L"", FALSE},  // let go of
      {'C', L'\x03', LEFT_CTRL_PRESSED, L"\x03"},
      {'X', L'x', LEFT_ALT_PRESSED, L"\x1Bx"},
      {'Q', L'@', alt_gr, L"@"},
      {0, L'\x6F22', 0, L"\x6F22"},
      {VK_BACK, L'\b', 0, L"\x7F"},
      {VK_BACK, L'\x7F', RIGHT_CTRL_PRESSED, L"\b"},
      {VK_TAB, L'\t', SHIFT_PRESSED, L"\x1B[Z"},
      {VK_ESCAPE, 0, 0, L"\x1B"},
      {VK_SPACE, L' ', LEFT_CTRL_PRESSED, std::wstring(1, L'\0')},
      {'2', 0, LEFT_CTRL_PRESSED | SHIFT_PRESSED, std::wstring(1, L'\0')},
      {VK_UP, 0, 0, L"\x1B[A"},
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

// "]" is Ctrl+], "^" the arrow up; of the meanings, in their order, "s" is to be sent.
TEST(CommandKeys, AreThoseBehindCtrlBracket) {
  for (const auto& [keys, meanings] : {std::pair{L"qb", "ss"},
                                       {L"]q]b]d]r]s]fb", "-l-b-d-r-i-fs"},
                                       {L"]^^", "-ks"},
                                       {L"]]]q", "-s-l"}}) {
    command_keys commands;
    std::string found;
    for (const wchar_t key : std::wstring_view(keys)) {
      const std::wstring text = key == L']'   ? L"\x1D"
                                : key == L'^' ? L"\x1B[A"
                                              : std::wstring(1, key);
      found += "-slbdrifk"[static_cast<int>(commands.feed(text))];
    }
    EXPECT_EQ(found, meanings);
  }
}

}  // namespace
}  // namespace tarnwheel::client
