#include "server/port_list.h"

#include <gtest/gtest.h>

#include <string_view>

namespace tarnwheel {
namespace {

std::span<const std::byte> bytes_of(std::wstring_view text, std::size_t surplus = 0) {
  return std::as_bytes(std::span(text)).first(text.size() * sizeof(wchar_t) - surplus);
}

TEST(PortNumber, IsReadFromTheFourthCharacterOn) {
  using namespace std::string_view_literals;
  const std::pair<std::wstring_view, std::uint32_t> rows[] = {
      {L"COM12"sv, 12},
      {L"COM12\0"sv, 12},
      {L"COM1\0002"sv, 1},
      {L"COM3x"sv, 3},
      {L"LPT1"sv, 1},
      {L"COM007"sv, 7},
      {L"COM0"sv, 0},
      {L"COM"sv, 0},
      {L"COM\0005"sv, 0},
      {L"COMx5"sv, 0},
      {L"COM-5"sv, 0},
      {L"COM\u0665"sv, 0},
      {L""sv, 0},
      {L"COM4294967295"sv, 4294967295},
      {L"COM4294967296"sv, 0},
      {L"COM99999999999999999999999999"sv, 0}};
  for (const auto& [name, expected] : rows) {
    EXPECT_EQ(port_number(REG_SZ, bytes_of(name)), expected) << std::wstring(name);
  }
}

TEST(PortNumber, NeedsAStringOfAnySize) {
  EXPECT_EQ(port_number(REG_EXPAND_SZ, bytes_of(L"COM12")), 12u);
  EXPECT_EQ(port_number(REG_MULTI_SZ, bytes_of(L"COM12")), 0u);
  EXPECT_EQ(port_number(REG_BINARY, bytes_of(L"COM12")), 0u);
  EXPECT_EQ(port_number(REG_SZ, bytes_of(L"COM12", 1)), 1u);
  EXPECT_EQ(port_number(REG_SZ, bytes_of(L"C", 1)), 0u);
  EXPECT_EQ(registry_text(bytes_of(L"Name", 1)), L"Nam");
  EXPECT_EQ(registry_text({}), L"");
}

TEST(Sharing, ShowsPortsThatArePresentAndShared) {
  const std::vector<port_entry> present = {
      {1, L"one"}, {3, L"three"}, {4, L"four"}, {7, L"seven"}, {7, L"seven again"}};
  const struct {
    std::vector<std::uint32_t> shared;
    std::vector<port_entry> expected;
  } rows[] = {{{}, present},
              {{3, 5}, {{3, L"three"}}},
              {{2, 5, 9}, {}},
              {{0, 1, 4, 0xFFFFFFFF}, {{1, L"one"}, {4, L"four"}}},
              {{7}, {{7, L"seven"}}}};
  for (const auto& row : rows) {
    EXPECT_EQ(shared_present_ports(present, row.shared), row.expected);
  }
  EXPECT_TRUE(shared_present_ports({}, {3}).empty());
}

TEST(Sharing, AllowsTheListedPortsOrAll) {
  for (const std::uint32_t number : {3u, 5u})
    EXPECT_TRUE(is_shared({3, 5}, number));
  for (const std::uint32_t number : {0u, 4u, 6u})
    EXPECT_FALSE(is_shared({3, 5}, number));
  EXPECT_TRUE(is_shared({}, 4));
}

}  // namespace
}  // namespace tarnwheel
