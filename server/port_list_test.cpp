#include "server/port_list.h"

#include <gtest/gtest.h>

#include <string_view>

namespace tarnwheel {
namespace {

using namespace std::string_view_literals;

TEST(PortNumber, IsReadFromTheFourthCharacterOfAStringOn) {
  const struct {
    std::wstring_view name;
    std::uint32_t expected;
    DWORD type = REG_SZ;
    std::size_t bytes_cut = 0;
  } rows[] = {{L"COM1\0002"sv, 1},
              {L"COM3x"sv, 3},
              {L"LPT007"sv, 7},
              {L"COM"sv, 0},
              {L"COM\u0665"sv, 0},
              {L"COM4294967295"sv, ~0u},
              {L"COM4294967301"sv, 0},
              {L"COM12"sv, 12, REG_EXPAND_SZ},
              {L"COM12"sv, 0, REG_MULTI_SZ},
              {L"COM12"sv, 1, REG_SZ, 1}};
  for (const auto& row : rows) {
    const auto name = std::as_bytes(std::span(row.name));
    EXPECT_EQ(port_number(row.type, name.first(name.size() - row.bytes_cut)), row.expected)
        << &row - rows;
  }
}

TEST(Sharing, ShowsPortsThatArePresentAndSharedAndAllowsTheSharedOnes) {
  using ports = std::vector<port_entry>;
  const ports present = {{1, L"one"}, {3, L"three"}, {7, L"seven"}, {7, L"again"}};
  EXPECT_EQ(shared_present_ports(present, {}), present);
  EXPECT_EQ(shared_present_ports(present, {0, 3, 5, 7}), (ports{{3, L"three"}, {7, L"seven"}}));
  EXPECT_EQ(shared_present_ports(present, {2, 9}), ports());
  EXPECT_TRUE(is_shared({3, 5}, 5) && is_shared({}, 4));
  EXPECT_FALSE(is_shared({3, 5}, 0) || is_shared({3, 5}, 4) || is_shared({3, 5}, 6));
}

}  // namespace
}  // namespace tarnwheel
