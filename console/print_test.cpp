#include "console/print.h"

#include "console/test_support.h"

namespace console {
namespace {

TEST(Console, RedirectedTextIsUtf8WithWindowsLineEnds) {
  const auto printed = [](const std::wstring& text) {
    test::RedirectedOutput output;
    const std::string bytes = output.Collect([&] { print(standard_stream::output, text); });
    print(standard_stream::output, L"nobody has the other end any more");
    return bytes;
  };
  EXPECT_EQ(printed(L"a\nb\r\n\x4E2D\xD83D\xDE00 half \xD83D pair"),
            "a\r\nb\r\n\xE4\xB8\xAD\xF0\x9F\x98\x80 half \xEF\xBF\xBD pair");
  EXPECT_EQ(printed(L""), "");
  EXPECT_EQ(printed(std::wstring(300'000, L'\x20AC')).size(), 900'000u);
}

}  // namespace
}  // namespace console
