#include "app/command_line/numbers.h"

#include <gtest/gtest.h>

#include "app/command_line/cmd_line_syntax_error.h"

namespace Tamrin {
namespace {

TEST(Numbers, Ports) {
  for (const wchar_t* text : {L"COM5", L"com5", L"5", L"005"})
    EXPECT_EQ(parse_port(text), 5u) << text;
  EXPECT_EQ(parse_port(L"4294967295"), ~0u);
  for (const wchar_t* text : {L"", L"COM", L"COM0", L"COM5x", L"COM 5", L"-5", L"LPT1", L"COMCOM5",
                              L"4294967296", L"18446744073709551621", L"COM\xFF15"})
    EXPECT_THROW(static_cast<void>(parse_port(text)), cmd_line_syntax_error) << text;
}

}  // namespace
}  // namespace Tamrin
