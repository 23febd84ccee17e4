#include "console/utf8.h"

#include <gtest/gtest.h>

#include <span>
#include <string>

namespace console {
namespace {

// Whatever the bytes are, and wherever they are cut.
TEST(Utf8Stream, GivesEveryCharacterAsSoonAsItIsWhole) {
  const struct {
    std::string first, second;
    std::wstring text;  // with "|" behind what comes with the first bytes
  } rows[] = {
      {"a\xC3", "\xA4z", L"a|\u00E4z"},
      {"\xE6\xBC", "\xA2", L"|\u6F22"},
      {"\xF0", "\x9F\x98\x80", L"|\xD83D\xDE00"},
      {"\xF0\x9F\x98", "\x80\xC3", L"|\xD83D\xDE00"},  // another one may still come
      {"\xFF", "a", L"\uFFFD|a"},
      {"\x80\x80\x80\x80", "", L"\uFFFD\uFFFD\uFFFD\uFFFD|"},
      // Began a character that never came. Wine needs three more bytes to see that.
      {"\xE4", "bcd", L"|\uFFFDbcd"},
      {"\xC0", "\xAF", L"\uFFFD|\uFFFD"},  // not in the shortest form
  };
  for (const auto& [first, second, text] : rows) {
    utf8_stream stream;
    const std::wstring decoded = stream.decode(std::as_bytes(std::span(first))) + L"|";
    EXPECT_EQ(decoded + stream.decode(std::as_bytes(std::span(second))), text);
  }
}

}  // namespace
}  // namespace console
