// The views of a terminal, of bytes that come in pieces.
#include <gtest/gtest.h>

#include <span>
#include <string>

#include "client/terminal/hex_view.h"
#include "console/utf8.h"

namespace tarnwheel::client {
namespace {

std::span<const std::byte> Bytes(const std::string& text) {
  return std::as_bytes(std::span(text));
}

TEST(HexView, RowsOfSixteenBytes) {
  std::string bytes;
  for (char value = 0; value < 17; ++value)
    bytes += static_cast<char>(value * 8 - 1);
  EXPECT_EQ(hex_view().add(Bytes(bytes)),
            L"\r00000000  ff 07 0f 17 1f 27 2f 37  3f 47 4f 57 5f 67 6f 77  |.....'/7?GOW_gow|\r\n"
            L"\r00000010  7f                                                |.|");
}

// On a screen each row replaces the incomplete one before it.
TEST(HexView, PiecesEndAsTheWholeDoes) {
  const std::string bytes = "twenty-two bytes of te";
  const std::wstring whole = hex_view().add(Bytes(bytes));
  for (const std::size_t size : {1u, 3u, 15u, 16u}) {
    hex_view view;
    std::wstring shown;
    for (std::size_t at = 0; at < bytes.size(); at += size)
      shown += view.add(Bytes(bytes.substr(at, size)));
    EXPECT_NE(shown.find(whole.substr(0, whole.rfind(L'\r'))), std::wstring::npos) << size;
    EXPECT_TRUE(shown.ends_with(whole.substr(whole.rfind(L'\r')))) << size;
  }
}

TEST(Utf8Stream, CharactersMayBeCutAnywhere) {
  const std::wstring text = L"a\u00E4\u6F22\xD83D\xDE00z";
  const auto bytes = console::to_utf8(text);
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    console::utf8_stream stream;
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
    console::utf8_stream stream;
    const std::wstring first = stream.decode(Bytes(row.first));
    EXPECT_EQ(first + stream.decode(Bytes(row.second)), row.text);
  }
}

}  // namespace
}  // namespace tarnwheel::client
