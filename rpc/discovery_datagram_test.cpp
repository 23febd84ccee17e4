#include "rpc/discovery_datagram.h"

#include <cstring>

#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using testing_support::code_of;

// What a datagram with this count and this name comes to; empty when it is refused.
std::wstring Heard(std::uint32_t count, std::wstring_view name) {
  auto datagram = make_datagram(name);
  std::memcpy(datagram.data(), &count, sizeof count);
  std::wstring heard;
  const HRESULT code = code_of([&] { return heard = name_in(datagram); });
  EXPECT_EQ(code, heard.empty() ? static_cast<HRESULT>(0x8007000D) : S_OK);
  return heard;
}

TEST(DiscoveryDatagram, NamesOfComputersAreTakenAsTheyAre) {
  const auto bytes = make_datagram(L"A\x20AC");
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
            "\2\0\0\0A\0\xAC\x20"sv);
  for (const std::wstring& name : {L"HOST"s, L"host-1_a.example"s, L"B\xFC\x4E2D"s, L"192.168.0.1"s,
                                   L"."s, std::wstring(255, L'n')})
    EXPECT_EQ(Heard(static_cast<std::uint32_t>(name.size()), name), name);
  EXPECT_EQ(Heard(2, L"HOST"), L"HO");  // what follows the name is ignored
}

TEST(DiscoveryDatagram, IncompleteOnesAndNamesThatLeadElsewhereAreRefused) {
  // Twice the larger counts has a small value in 32 bits.
  for (const std::uint32_t count : {5u, 0x80000000u, 0x80000004u, 0xFFFFFFFFu})
    EXPECT_EQ(Heard(count, L"HOST"), L"") << count;
  EXPECT_NE(code_of([] { return name_in({}); }), S_OK);
  const std::wstring too_long(256, L'n');
  for (const std::wstring_view name : {L""sv,        L".."sv,    L"..."sv,
                                       L".host"sv,   L"?"sv,     L"*"sv,
                                       L"a\\b"sv,    L"a/b"sv,   L"\\"sv,
                                       L".\\pipe"sv, L"host:"sv, L"host@80"sv,
                                       L"a b"sv,     L"a\0"sv,   L"\0host"sv,
                                       L"a\n"sv,     L"a\x85"sv, L"\"a\""sv,
                                       L"a|b"sv,     L"<"sv,     std::wstring_view(too_long)})
    EXPECT_EQ(Heard(static_cast<std::uint32_t>(name.size()), name), L"");
}

}  // namespace
}  // namespace tether
