#include "server/port_list.h"

#include <gtest/gtest.h>

#include <string_view>

namespace tarnwheel {
namespace {

TEST(PortNumber, IsReadFromTheFourthCharacterOfAStringOn) {
  using namespace std::string_view_literals;
  const struct {
    DWORD type;
    std::wstring_view name;
    std::uint32_t expected;
    std::size_t bytes_cut = 0;
  } rows[] = {{REG_SZ, L"COM12"sv, 12},
              {REG_SZ, L"COM12\0"sv, 12},
              {REG_SZ, L"COM1\0002"sv, 1},
              {REG_SZ, L"COM3x"sv, 3},
              {REG_SZ, L"LPT1"sv, 1},
              {REG_SZ, L"COM007"sv, 7},
              {REG_SZ, L"COM"sv, 0},
              {REG_SZ, L"COM-5"sv, 0},
              {REG_SZ, L"COM\u0665"sv, 0},
              {REG_SZ, L""sv, 0},
              {REG_SZ, L"COM4294967295"sv, ~0u},
              {REG_SZ, L"COM4294967296"sv, 0},
              {REG_EXPAND_SZ, L"COM12"sv, 12},
              {REG_MULTI_SZ, L"COM12"sv, 0},
              {REG_BINARY, L"COM12"sv, 0},
              {REG_SZ, L"COM12"sv, 1, 1},
              {REG_SZ, L"C"sv, 0, 1}};
  for (const auto& row : rows) {
    const auto bytes = std::as_bytes(std::span(row.name));
    EXPECT_EQ(port_number(row.type, bytes.first(bytes.size() - row.bytes_cut)), row.expected)
        << std::string(row.name.begin(), row.name.end());
  }
}

TEST(Sharing, ShowsPortsThatArePresentAndSharedAndAllowsTheSharedOnes) {
  const std::vector<port_entry> present = {
      {1, L"one"}, {3, L"three"}, {7, L"seven"}, {7, L"again"}};
  EXPECT_EQ(shared_present_ports(present, {}), present);
  EXPECT_EQ(shared_present_ports(present, {0, 3, 5, 7}),
            (std::vector<port_entry>{{3, L"three"}, {7, L"seven"}}));
  EXPECT_TRUE(shared_present_ports(present, {2, 9}).empty());
  EXPECT_TRUE(is_shared({3, 5}, 5));
  for (const std::uint32_t number : {0u, 4u, 6u})
    EXPECT_FALSE(is_shared({3, 5}, number));
  EXPECT_TRUE(is_shared({}, 4));
}

}  // namespace
}  // namespace tarnwheel
