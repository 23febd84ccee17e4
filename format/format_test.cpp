#include "format/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "format/thousands_separator.h"
#include "platform/win32.h"

namespace tfmt {
namespace {

using std::wstring;

template <class T>
constexpr bool accepted = requires(const T& value) {
  format(L"{0}", value);
};

static_assert(accepted<HRESULT> && accepted<DWORD> && accepted<wchar_t[4]>);
static_assert(!accepted<long long> && !accepted<short> && !accepted<wchar_t> && !accepted<double>);
static_assert(!accepted<int*> && !accepted<std::string> && !accepted<char[4]>);

TEST(Format, LiteralTextAndBraces) {
  EXPECT_EQ(format(L"{{0}"), L"{0}");
  EXPECT_EQ(format(L"}}"), L"}}");
  EXPECT_EQ(format(L"{{{0}{{a{{{{b{{", 7), L"{7{a{{b{");
}

TEST(Format, EachTypeOfArgument) {
  const std::wstring_view cut = std::wstring_view(L"viewed").substr(0, 4);
  EXPECT_EQ(
      format(L"{}|{}|{}|{}|{}|{}|{}", -5, 5u, HRESULT{6}, DWORD{7}, wstring(L"s"), cut, L"lit"),
      L"-5|5|6|7|s|view|lit");
  EXPECT_EQ(format(L"[{0}][{0w2f*}]", true), L"[][**]");
  EXPECT_EQ(format(L"{0}", wstring(L"a\0b", 3)), wstring(L"a\0b", 3));
}

TEST(Format, IndexContinuesFromThePlaceholderBefore) {
  EXPECT_EQ(format(L"{}{}{5}{}", 0, 1, 2, 3, 4, 5, 6), L"0156");
  EXPECT_EQ(format(L"{1}{0}{}", L"a", L"b"), L"bab");
  EXPECT_EQ(format(L"{65536}{131073}", L"a", L"b"), L"ab");  // indexes wrap at 16 bits
}

constexpr int kLeast = std::numeric_limits<int>::min();

TEST(Format, Integers) {
  const struct {
    const wchar_t* pattern;
    int value;
    const wchar_t* text;
  } rows[] = {
      {L"{0}", kLeast, L"-2147483648"},
      {L"{0+}", 0, L"+0"},
      {L"{0+}", -5, L"-5"},
      {L"{0u+}", -1, L"4294967295"},
      {L"{0b2}", 5, L"101"},
      {L"{0b2}", kLeast, L"-10000000000000000000000000000000"},
      {L"{0b8}", 64, L"100"},
      {L"{0ub8}", -1, L"37777777777"},
      {L"{0b016}", 0, L"0"},
      {L"{0b16}", 255, L"FF"},
      {L"{0b16x}", 255, L"ff"},
      {L"{0b016}", 255, L"0XFF"},
      {L"{0b016xp}", 0, L"00000000"},
      {L"{0b016xp}", 10, L"0x0000000a"},
      {L"{0b016xp}", -10, L"-0x0000000a"},
      {L"{0+b016p}", 10, L"+0X0000000A"},
      {L"{0b016xpb16}", 10, L"A"},            // the last base wins, with all that belongs to it
      {L"{0b10p}", 255, L"255"},              // no padding: this p is a precision
      {L"{0b}{0b7}{0b272}", 171, L"ABABAB"},  // other bases are hexadecimal
      {L"{0c}", 0x10041, L"A"},
      {L"{0cb016+}", 0x42, L"B"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(format(row.pattern, row.value), row.text) << row.value;

  EXPECT_EQ(format(L"{0ub016xp}", static_cast<int>(0x80070005u)), L"0x80070005");
  EXPECT_EQ(format(L"{0b016xp}", 0x80070005u), L"0x80070005");
  EXPECT_EQ(format(L"{0+}", 4294967295u), L"4294967295");
}

TEST(Format, GroupsOfThree) {
  const wstring separator(details::thousands_separator());
  const auto grouped = [&](std::vector<wstring> groups) {
    wstring text = groups.front();
    for (std::size_t i = 1; i < groups.size(); ++i)
      text += separator + groups[i];
    return text;
  };
  EXPECT_EQ(format(L"{0l}", 1000), grouped({L"1", L"000"}));
  EXPECT_EQ(format(L"{0l}", 100023), grouped({L"100", L"023"}));
  EXPECT_EQ(format(L"{0l}", kLeast), grouped({L"-2", L"147", L"483", L"648"}));
  EXPECT_EQ(format(L"{0lb16}", 0x12345), L"12345");
}

TEST(Format, Widths) {
  const struct {
    const wchar_t* pattern;
    const wchar_t* argument;
    const wchar_t* text;
  } rows[] = {
      {L"{0w3}", L"x", L"x  "},
      {L"{0w3ar}", L"x", L"  x"},
      {L"{0w3ac}", L"x", L" x "},
      {L"{0w4ac}", L"x", L" x  "},
      {L"{0w4arf0}", L"7", L"0007"},
      {L"{0w3f}}", L"x", L"x}}"},
      {L"{0w3f{}", L"x", L"x{{"},
      {L"{0w3ara}}", L"x", L"  x"},  // an unknown alignment keeps the one before
      {L"{0w,3}", L"abcdef", L"abc"},
      {L"{0w,3ar}", L"abcdef", L"def"},
      {L"{0w,3e}", L"abcdef", L"ab\u2026"},
      {L"{0w,3are}", L"abcdef", L"\u2026ef"},
      {L"{0w,3e}", L"abc", L"abc"},
      {L"{0w5,3}", L"abcd", L"abcd "},  // a text below its least width is never cut
      {L"{0w2,4}", L"abcdef", L"abcd"},
      {L"{0w,3w2}", L"abcdef", L"abcdef"},  // the last widths win, both of them
      {L"{0w65539}", L"x", L"x  "},         // widths wrap at 16 bits
      {L"{0nssap12t(no width 9)w2}", L"x", L"x "},
  };
  for (const auto& row : rows)
    EXPECT_EQ(format(row.pattern, row.argument), row.text) << row.text;
  EXPECT_EQ(format(L"{0w65535ar}", L"x"), wstring(65534, L' ') + L"x");
}

TEST(Format, Conditions) {
  const auto names = [](bool has_short, bool has_long) {
    return format(L"{0?<}-{1}{2?<}, {2?>}{0?>}{2?<}--{3}{2?>}", has_short, L"s", has_long, L"long");
  };
  EXPECT_EQ(names(true, true), L"-s, --long");
  EXPECT_EQ(names(true, false), L"-s");
  EXPECT_EQ(names(false, true), L"--long");
  EXPECT_EQ(names(false, false), L"");
  EXPECT_EQ(format(L"{0?<}yes{0?|}no{0?>}.", true), L"yes.");
  EXPECT_EQ(format(L"{0?<}yes{0?|}no{0?>}.", false), L"no.");
  EXPECT_EQ(format(L"{0?<}a{1?<}b{1?|}c{1?>}{{{0?>}d", false, true), L"d");
  EXPECT_EQ(format(L"{0?>?<}the last form wins", false), L"");
  EXPECT_EQ(format(L"{0?<}left open", false), L"");
}

TEST(Format, SectionsNestBeyondTheRoomInPlace) {
  wstring pattern;
  for (int depth = 0; depth < 200; ++depth)
    pattern += depth == 150 ? L"{1?<}" : L"{0?<}";
  pattern += L"hidden";
  for (int depth = 199; depth > 150; --depth)
    pattern += L"{0?>}";
  pattern += L"{0?|}shown";
  for (int depth = 150; depth >= 0; --depth)
    pattern += L"{0?>}";
  EXPECT_EQ(format(pattern + L".", true, false), L"shown.");
}

TEST(Format, MalformedPatternsThrow) {
  for (const wchar_t* pattern :
       {L"{",      L"text {0", L"{0w2,",   L"{0f",     L"{0f}",    L"{0a",      L"{0a}",   L"{0?",
        L"{0b16x", L"{0t",     L"{0t(ab",  L"{{{",     L"{0 }",    L"{0,w2}",   L"{0W2}",  L"{0?x}",
        L"{0?}",   L"{0t}",    L"{0tab)}", L"{0t(ab}", L"{{0}{0{", L"{0b16px}", L"{0b10x}"}) {
    EXPECT_THROW((void)format(pattern, 1), bad_extended_format_string)
        << testing::PrintToString(wstring(pattern));
  }
}

TEST(Format, ArgumentsThatDoNotFitThrow) {
  EXPECT_THROW((void)format(L"{0}"), bad_extended_format_string);
  EXPECT_THROW((void)format(L"{0}{}", 1), bad_extended_format_string);
  EXPECT_THROW((void)format(L"{0?<}{1}{0?>}", false), bad_extended_format_string);
  EXPECT_THROW((void)format(L"{0?<}", 1), bad_extended_format_string);
  EXPECT_THROW((void)format(L"{0?>}", true), bad_extended_format_string);
  EXPECT_THROW((void)format(L"{0?|}", true), bad_extended_format_string);
}

}  // namespace
}  // namespace tfmt
