#include <gtest/gtest.h>

#include <span>
#include <string>

#include "client/terminal/hex_view.h"

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
  hex_view view;
  std::wstring shown;
  for (std::size_t at = 0; at < bytes.size(); at += 3)
    shown += view.add(Bytes(bytes.substr(at, 3)));
  EXPECT_NE(shown.find(whole.substr(0, whole.rfind(L'\r'))), std::wstring::npos);
  EXPECT_TRUE(shown.ends_with(whole.substr(whole.rfind(L'\r'))));
}

}  // namespace
}  // namespace tarnwheel::client
