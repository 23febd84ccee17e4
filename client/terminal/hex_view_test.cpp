#include "client/terminal/hex_view.h"

#include <gtest/gtest.h>

#include <span>
#include <string_view>

namespace tarnwheel::client {
namespace {

// A row replaces the incomplete one before it on the screen.
TEST(HexView, RowsOfSixteenBytes) {
  hex_view view;
  const std::string_view bytes = "\xFF\x1F 0123456789A~\x7F!";
  EXPECT_EQ(view.add(std::as_bytes(std::span(bytes))),
            L"\r00000000  ff 1f 20 30 31 32 33 34  35 36 37 38 39 41 7e 7f  |.. 0123456789A~.|\r\n"
            L"\r00000010  21                                                |!|");
}

}  // namespace
}  // namespace tarnwheel::client
