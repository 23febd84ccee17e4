#include "app/command_line/numbers.h"

#include <gtest/gtest.h>

#include "app/command_line/cmd_line_syntax_error.h"

namespace Tamrin {
namespace {

TEST(Numbers, Ports) {
  const struct {
    const wchar_t* text;
    std::uint32_t number;  // 0: refused
  } rows[] = {
      {L"COM5", 5},
      {L"com5", 5},
      {L"Com12", 12},
      {L"5", 5},
      {L"007", 7},
      {L"COM", 0},
      {L"", 0},
      {L"COM0", 0},
      {L"0", 0},
      {L"COM5x", 0},
      {L"COM 5", 0},
      {L"-5", 0},
      {L"LPT1", 0},
      {L"COMCOM5", 0},
      {L"4294967295", ~0u},
      {L"4294967296", 0},
      {L"CO5", 0},
      {L"COM\xFF15", 0},             // a full-width digit
      {L"18446744073709551621", 0},  // 5 in 64 bits
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "port " << row.text);
    if (row.number == 0) {
      EXPECT_THROW(static_cast<void>(parse_port(row.text)), cmd_line_syntax_error);
    } else {
      EXPECT_EQ(parse_port(row.text), row.number);
    }
  }
}

}  // namespace
}  // namespace Tamrin
