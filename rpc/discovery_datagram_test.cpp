#include "rpc/discovery_datagram.h"

#include <gtest/gtest.h>

#include <cstring>

#include "async/test_support.h"

namespace tether {
namespace {

using ostra::test::code_of;

std::vector<std::byte> bytes_of(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

// A name with any count before it.
std::vector<std::byte> query(std::uint32_t count, std::wstring_view name) {
  auto datagram = make_datagram(name);
  std::memcpy(datagram.data(), &count, sizeof count);
  return datagram;
}

constexpr auto kMalformed = static_cast<HRESULT>(0x8007000D);

TEST(DiscoveryDatagram, HoldsCountAndUnits) {
  using namespace std::string_view_literals;
  EXPECT_EQ(make_datagram(L"A\x20AC"), bytes_of("\2\0\0\0A\0\xAC\x20"sv));
  EXPECT_EQ(make_datagram(L""), bytes_of("\0\0\0\0"sv));
}

TEST(DiscoveryDatagram, NamesOfComputersAreTakenAsTheyAre) {
  const std::wstring longest(255, L'n');
  for (const std::wstring& name :
       {std::wstring(L"HOST"), std::wstring(L"host-1_a.example"), std::wstring(L"B\xFC\x4E2D"),
        std::wstring(L"192.168.0.1"), std::wstring(L"."), longest}) {
    EXPECT_EQ(name_in(make_datagram(name)), name);
  }
  EXPECT_EQ(name_in(query(2, L"HOST")), L"HO");  // what follows the name is ignored
}

TEST(DiscoveryDatagram, IncompleteQueriesAreRefused) {
  const auto whole = make_datagram(L"HOST");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const auto cut = std::span(whole).first(size);
    EXPECT_EQ(code_of([&] { static_cast<void>(name_in(cut)); }), kMalformed) << size;
  }
  // Twice these counts has a small value in 32 bits.
  for (const std::uint32_t count : {5u, 0x7FFFFFFFu, 0x80000000u, 0x80000004u, 0xFFFFFFFFu}) {
    const auto lying = query(count, L"HOST");
    EXPECT_EQ(code_of([&] { static_cast<void>(name_in(lying)); }), kMalformed) << count;
  }
}

TEST(DiscoveryDatagram, NamesThatLeaveTheirPlaceInThePathAreRefused) {
  using namespace std::string_view_literals;
  const std::wstring too_long(256, L'n');
  for (const std::wstring_view name : {L""sv,        L".."sv,    L"..."sv,
                                       L".host"sv,   L"?"sv,     L"*"sv,
                                       L"a\\b"sv,    L"a/b"sv,   L"\\"sv,
                                       L".\\pipe"sv, L"host:"sv, L"host@80"sv,
                                       L"a b"sv,     L"a\0"sv,   L"\0host"sv,
                                       L"a\n"sv,     L"a\x85"sv, L"\"a\""sv,
                                       L"a|b"sv,     L"<"sv,     std::wstring_view(too_long)}) {
    const auto datagram = make_datagram(name);
    EXPECT_EQ(code_of([&] { static_cast<void>(name_in(datagram)); }), kMalformed) << name.size();
  }
}

}  // namespace
}  // namespace tether
