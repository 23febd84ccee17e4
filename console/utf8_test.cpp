#include "console/utf8.h"

#include <gtest/gtest.h>

#include <span>
#include <string>

namespace console {
namespace {

std::span<const std::byte> Bytes(const std::string& text) {
  return std::as_bytes(std::span(text));
}

TEST(Utf8Stream, CharactersMayBeCutAnywhere) {
  const std::wstring text = L"a\u00E4\u6F22\xD83D\xDE00z";
  const auto bytes = to_utf8(text);
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    utf8_stream stream;
    std::wstring decoded = stream.decode(std::span(bytes).first(cut));
    EXPECT_EQ(text.substr(0, decoded.size()), decoded) << cut;  // nothing but whole characters
    decoded += stream.decode(std::span(bytes).subspan(cut));
    EXPECT_EQ(decoded, text) << cut;
  }
}

TEST(Utf8Stream, WhatIsNoCharacterHoldsNothingUp) {
  const struct {
    std::string first;
    std::string second;
    std::wstring text;
  } rows[] = {
      {"\xFF", "a", L"\uFFFDa"},
      {"\x80\x80\x80\x80", "", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      // Began a character that never came. Wine needs three more bytes to see that.
      {"\xE4", "bcd", L"\uFFFDbcd"},
      {"\xC3", "\xA4\xC3", L"\xE4"},      // the second one may still come
      {"\xC0\xAF", "", L"\uFFFD\uFFFD"},  // not in the shortest form
  };
  for (const auto& row : rows) {
    utf8_stream stream;
    const std::wstring first = stream.decode(Bytes(row.first));
    EXPECT_EQ(first + stream.decode(Bytes(row.second)), row.text);
  }
}

}  // namespace
}  // namespace console
