#include <gtest/gtest.h>

#include <span>
#include <string>

#include "client/terminal/hex_view.h"

namespace tarnwheel::client {
namespace {

// On a screen each row replaces the incomplete one before it.
TEST(HexView, RowsOfSixteenBytesAsTheyCome) {
  hex_view view;
  std::wstring shown;
  for (int value = -1; value < 127; value += 8) {
    const char byte = static_cast<char>(value);
    shown = view.add(std::as_bytes(std::span(&byte, 1)));
  }
  EXPECT_EQ(
      shown,
      L"\r00000000  ff 07 0f 17 1f 27 2f 37  3f 47 4f 57 5f 67 6f 77  |.....'/7?GOW_gow|\r\n");
  EXPECT_EQ(view.add(std::as_bytes(std::span("\x7F"
                                             "a",
                                             2))),
            L"\r00000010  7f 61                                             |.a|");
}

}  // namespace
}  // namespace tarnwheel::client
