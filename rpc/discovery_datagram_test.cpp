#include "rpc/discovery_datagram.h"

#include <cstring>

#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using namespace std::string_literals;

// Parses a datagram with this name, whose count is off by `surplus` and whose last byte is missing
// if `cut`. Returns the parsed name, empty when the datagram is refused.
std::wstring Heard(std::wstring_view name, std::uint32_t surplus = 0, bool cut = false) {
  auto datagram = make_datagram(name);
  const auto count = static_cast<std::uint32_t>(name.size()) + surplus;
  std::memcpy(datagram.data(), &count, sizeof count);
  datagram.resize(datagram.size() - (cut ? 1 : 0));
  std::wstring heard;
  const HRESULT code = testing_support::code_of([&] { return heard = name_in(datagram); });
  EXPECT_EQ(code, heard.empty() ? static_cast<HRESULT>(0x8007000D) : S_OK);
  return heard;
}

TEST(DiscoveryDatagram, OnlyComputerNamesAreAccepted) {
  for (const auto& name :
       {L"HOST"s, L"host-1_a.example"s, L"B\xFC\x4E2D"s, L"."s, std::wstring(255, L'n')})
    EXPECT_EQ(Heard(name), name);
  for (const auto& name : {L""s, L".."s, L".host"s, L"?"s, L"*"s, L"a\\b"s, L"a/b"s, L"host:"s,
                           L"host@80"s, L"a b"s, L"\0host"s, L"a\n"s, L"a\x85"s, L"\"a\""s, L"a|b"s,
                           L"<"s, L"[a]"s, L"a`"s, std::wstring(256, L'n')})
    EXPECT_EQ(Heard(name), L"");
  EXPECT_EQ(Heard(L"HOST", static_cast<std::uint32_t>(-2)), L"HO");  // the rest is ignored
  // Twice one of the larger counts wraps to a small value in 32 bits.
  for (const std::uint32_t surplus : {1u, 0x80000000u, 0x7FFFFFFCu})
    EXPECT_EQ(Heard(L"HOST", surplus), L"");
  EXPECT_EQ(Heard(L"HOST", 0, true) + Heard(L"", 0, true), L"");
}

}  // namespace
}  // namespace tether
