#include "client/terminal/hex_view.h"

#include <gtest/gtest.h>

#include <span>

namespace tarnwheel::client {
namespace {

// A row replaces the incomplete one before it on the screen.
TEST(HexView, RowsOfSixteenBytes) {
  hex_view view;
  EXPECT_EQ(view.add(std::as_bytes(std::span("\xFF\x1F 0123456789A~\x7F!", 17))),
            L"\r00000000  ff 1f 20 30 31 32 33 34  35 36 37 38 39 41 7e 7f  |.. 0123456789A~.|\r\n"
            L"\r00000010  21                                                |!|");
}

}  // namespace
}  // namespace tarnwheel::client
