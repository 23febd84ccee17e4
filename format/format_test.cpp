#include "format/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "format/thousands_separator.h"
#include "platform/win32.h"

namespace tfmt {
namespace {

using std::wstring;

constexpr int kMinimum = std::numeric_limits<int>::min();

TEST(Format, IntegersByBaseSignAndGroups) {
  const struct {
    int value;
    const wchar_t *pattern, *text;
  } rows[] = {
      {kMinimum, L"{0} {0b2}", L"-2147483648 -10000000000000000000000000000000"},
      {0, L"{0+} {0b016} {0b016xp}", L"+0 0 00000000"},
      {-5, L"{0+} {0b2} {0b016xp}", L"-5 -101 -0x00000005"},
      {-1, L"{0u+} {0ub8}", L"4294967295 37777777777"},
      {64, L"{0b8} {0c} {0cb016+}", L"100 @ @"},
      {255, L"{0b16} {0b16x} {0b016}", L"FF ff 0XFF"},
      {255, L"{0b10p}", L"255"},  // no padding: this p is a precision
      {10, L"{0b016xp} {0+b016p}", L"0x0000000a +0X0000000A"},
      {10, L"{0b016xpb16}", L"A"},            // the last base wins, with its modifiers
      {171, L"{0b}{0b7}{0b272}", L"ABABAB"},  // other bases are hexadecimal
      {0x10041, L"{0c}", L"A"},
      {0x12345, L"{0lb16}", L"12345"},
  };
  for (const auto& [value, pattern, text] : rows)
    EXPECT_EQ(tfmt::format(pattern, value), text) << pattern;
  EXPECT_EQ(tfmt::format(L"{0b016xp} {1+}", 0x80070005u, ~0u), L"0x80070005 4294967295");
  const wstring comma(details::thousands_separator());
  EXPECT_EQ(tfmt::format(L"{0l} {1l}", 100023, kMinimum),
            L"100" + comma + L"023 -2" + comma + L"147" + comma + L"483" + comma + L"648");
}

TEST(Format, Widths) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"{0w3}{0w3ar}{0w3ac}{0w4ac}{0w4arf0}", L"x    x x  x  000x"},
      {L"{0w3f}}{0w3f{}{0w3ara}}", L"x}}x{{  x"},  // an unknown alignment keeps the old one
      {L"{1w,3} {1w,3ar} {1w2,4}", L"abc def abcd"},
      {L"{1w,3e} {1w,3are} {1w,6e}", L"ab\u2026 \u2026ef abcdef"},
      {L"{1w7,3}|", L"abcdef |"},  // text shorter than its minimum width is never cut
      {L"{1w,3w2}", L"abcdef"},    // the last pair of widths wins
      {L"{0w65539}|{0nssap12t(no width 9)w2}|", L"x  |x |"},  // widths wrap at 16 bits
  };
  for (const auto& [pattern, text] : rows)
    EXPECT_EQ(tfmt::format(pattern, L"x", L"abcdef"), text) << pattern;
  EXPECT_EQ(tfmt::format(L"{0w65535ar}", L"x"), wstring(65534, L' ') + L"x");
}

TEST(Format, ArgumentsBracesAndConditions) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"{{{0}{{a{{{{b{{}}", L"{-5{a{{b{}}"},
      {L"{}{} {5}{} {1}{0}{}", L"-55 litnul 5-55"},
      {L"{65536}{131073}", L"-55"},  // indexes wrap at 16 bits
      {L"{2}{2w2f*}{3}", L"**"},
      {L"{2?<}yes{2?|}no{2?>}{3?<}yes{3?|}no{3?>}.", L"yesno."},
      {L"{2?<}-s{2?<}, {2?>}{3?<}-t{3?<}, {3?>}{3?>}{2?>}.", L"-s, ."},
      {L"{3?<}a{2?<}b{2?|}c{2?>}{{{3?>}d", L"d"},
      {L"{3?>?<}the last form wins", L""},
      {L"{3?<}left open", L""},
  };
  for (const auto& [pattern, text] : rows)
    EXPECT_EQ(tfmt::format(pattern, -5, 5u, true, false, wstring(L"s"),
                           std::wstring_view(L"lit!", 3), L"nul"),
              text);
}

TEST(Format, SectionsNestBeyondTheInPlaceCapacity) {
  wstring pattern;
  for (int depth = 0; depth < 200; ++depth)
    pattern += depth == 150 ? L"{1?<}" : L"{0?<}";
  pattern += L"hidden";
  for (int depth = 199; depth >= 0; --depth)
    pattern += depth == 150 ? L"{0?|}shown{0?>}" : L"{0?>}";
  EXPECT_EQ(tfmt::format(pattern + L".", true, false), L"shown.");
}

TEST(Format, MalformedPatternsAndArgumentsThatDoNotFitThrow) {
  for (const wchar_t* pattern :
       {L"{",       L"text {0", L"{0w2,",   L"{0f",      L"{0f}",         L"{0a",
        L"{0a}",    L"{0?",     L"{0b16x",  L"{0t",      L"{0t(ab",       L"{{{",
        L"{0 }",    L"{0,w2}",  L"{0W2}",   L"{0?x}",    L"{0?}",         L"{0t}",
        L"{0tab)}", L"{0t(ab}", L"{{0}{0{", L"{0b16px}", L"{0b10x}",      L"{2}",
        L"{1}{}",   L"{0?<}",   L"{1?>}",   L"{1?|}",    L"{1?<}{2}{1?>}"})
    EXPECT_THROW((void)tfmt::format(pattern, 1, false), bad_extended_format_string) << pattern;
}

}  // namespace
}  // namespace tfmt
