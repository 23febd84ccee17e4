#include "console/utf8.h"

#include <gtest/gtest.h>

namespace console {
namespace {

TEST(Utf8, TextSurvivesTheWayThereAndBack) {
  const std::wstring text = L"a\u00E4\u20AC\xD83D\xDE00";
  EXPECT_EQ(to_utf8(text).size(), 1u + 2 + 3 + 4);
  EXPECT_EQ(from_utf8(to_utf8(text)), text);
  const std::byte invalid[] = {std::byte{'a'}, std::byte{0xFF}, std::byte{'b'}};
  EXPECT_EQ(from_utf8(invalid),
            L"a\uFFFD"
            L"b");
}

}  // namespace
}  // namespace console
