#include "console/utf8.h"

#include <gtest/gtest.h>

#include <span>
#include <string>

namespace console {
namespace {

// Whatever the bytes are, and wherever they are cut.
TEST(Utf8Stream, GivesEveryCharacterAsSoonAsItIsWhole) {
  const struct {
    std::string first;
    std::string second;
    std::wstring text;
    std::size_t at_once;  // characters of it that come with the first bytes
  } rows[] = {
      {"a\xC3", "\xA4z", L"a\u00E4z", 1},
      {"\xE6\xBC", "\xA2", L"\u6F22", 0},
      {"\xF0", "\x9F\x98\x80", L"\xD83D\xDE00", 0},
      {"\xF0\x9F\x98", "\x80\xC3", L"\xD83D\xDE00", 0},  // another one may still come
      {"\xFF", "a", L"\uFFFDa", 1},
      {"\x80\x80\x80\x80", "", L"\uFFFD\uFFFD\uFFFD\uFFFD", 4},
      // Began a character that never came. Wine needs three more bytes to see that.
      {"\xE4", "bcd", L"\uFFFDbcd", 0},
      {"\xC0\xAF", "", L"\uFFFD\uFFFD", 2},  // not in the shortest form
  };
  for (const auto& row : rows) {
    utf8_stream stream;
    const std::wstring first = stream.decode(std::as_bytes(std::span(row.first)));
    EXPECT_EQ(first, row.text.substr(0, row.at_once));
    EXPECT_EQ(first + stream.decode(std::as_bytes(std::span(row.second))), row.text);
  }
}

}  // namespace
}  // namespace console
