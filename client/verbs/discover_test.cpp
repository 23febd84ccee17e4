#include "client/verbs/discover.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "rpc/discovery_datagram.h"

namespace tarnwheel::client {
namespace {

TEST(FoundServers, EachIsListedOnceAndSorted) {
  found_servers servers;
  for (const auto& no_answer : {std::vector<std::byte>(), tether::make_datagram(L"two\nlines")})
    servers.add_answer(no_answer);
  EXPECT_TRUE(servers.empty());
  for (const auto* name :
       {L"\u00DCber", L"b", L"C", L"a10", L"A", L"\u00FCber", L"zoo", L"a", L"A"})
    servers.add_answer(tether::make_datagram(name));
  EXPECT_EQ(servers.lines(), L"A\na10\nb\nC\nzoo\n\u00DCber\n");
  for (std::size_t i = 0; i < found_servers::kMax; ++i)
    servers.add(std::to_wstring(i));
  EXPECT_EQ(servers.names().size(), found_servers::kMax);
}

TEST(QueryFailure, SaysWhoWasNotAskedAndWhy) {
  constexpr auto kMissing = static_cast<HRESULT>(0x80070002);
  EXPECT_FALSE(query_failure(L".", kMissing));
  // The system's own message follows, in its language.
  const auto missing = query_failure(L"*", kMissing)->message();
  EXPECT_TRUE(missing.starts_with(L"Asking the other machines: ")) << missing;
  const auto off = query_failure(L"*", ostra::details::to_hresult(3025))->message();
  EXPECT_TRUE(off.starts_with(L"Only this machine was asked, ")) << off;
}

}  // namespace
}  // namespace tarnwheel::client
