#include "console/utf8.h"

#include <gtest/gtest.h>

#include <span>
#include <string>

namespace console {
namespace {

// For valid and invalid bytes, wherever they are cut.
TEST(Utf8Stream, GivesEveryCharacterAsSoonAsItIsComplete) {
  const struct {
    std::string first, second;
    std::wstring text;  // with "|" after the text decoded from `first`
  } rows[] = {
      {"a\xC3", "\xA4z", L"a|\u00E4z"},
      {"\xE6\xBC", "\xA2", L"|\u6F22"},
      {"\xF0", "\x9F\x98\x80", L"|\xD83D\xDE00"},
      {"\xF0\x9F\x98", "\x80\xC3", L"|\xD83D\xDE00"},  // C3 begins another character
      {"\xFF", "a", L"\uFFFD|a"},
      {"\x80\x80\x80\x80", "", L"\uFFFD\uFFFD\uFFFD\uFFFD|"},
      // E4 begins a character that is never completed. Wine needs three more bytes to see that.
      {"\xE4", "bcd", L"|\uFFFDbcd"},
      {"\xC0", "\xAF", L"\uFFFD|\uFFFD"},  // an overlong encoding
  };
  for (const auto& [first, second, text] : rows) {
    utf8_stream stream;
    const std::wstring decoded = stream.decode(std::as_bytes(std::span(first))) + L"|";
    EXPECT_EQ(decoded + stream.decode(std::as_bytes(std::span(second))), text);
  }
}

}  // namespace
}  // namespace console
