#include "console/print.h"

#include <gtest/gtest.h>

#include <string>

#include "console/test_support.h"

namespace console {
namespace {

using test::RedirectedOutput;

TEST(Console, RedirectedTextIsUtf8WithWindowsLineEnds) {
  const struct {
    const wchar_t* text;
    const char* bytes;
  } rows[] = {{L"a\nb\r\nc", "a\r\nb\r\nc"},
              {L"\x4E2D\xD83D\xDE00 \x20AC", "\xE4\xB8\xAD\xF0\x9F\x98\x80 \xE2\x82\xAC"},
              {L"half \xD83D pair", "half \xEF\xBF\xBD pair"},
              {L"", ""}};
  for (const auto& row : rows) {
    RedirectedOutput output;
    EXPECT_EQ(output.Print(row.text), row.bytes);
  }
  RedirectedOutput output;
  EXPECT_EQ(output.Print(std::wstring(300'000, L'\x20AC')).size(), 900'000u) << "a long text";
}

TEST(Console, ClosedReaderIsNoError) {
  RedirectedOutput output;
  EXPECT_EQ(output.Print(L"first"), "first");
  print(standard_stream::output, L"nobody has this end any more");
}

}  // namespace
}  // namespace console
