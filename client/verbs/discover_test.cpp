#include "client/verbs/discover.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "rpc/discovery_datagram.h"

namespace tarnwheel::client {
namespace {

TEST(FoundServers, EachIsListedOnceAndSorted) {
  const std::pair<std::vector<const wchar_t*>, const wchar_t*> rows[] = {
      {{L"one", L"ONE", L"one", L"two\nlines"}, L"one\n"},  // the last is no answer
      {{L"b", L"C", L"a10", L"A"}, L"A\na10\nb\nC\n"},
      {{L"\u00DCber", L"\u00FCber", L"zoo"}, L"zoo\n\u00DCber\n"},
  };
  for (const auto& [names, lines] : rows) {
    found_servers servers;
    servers.add_answer({});
    EXPECT_TRUE(servers.empty());
    for (const auto* name : names)
      servers.add_answer(tether::make_datagram(name));
    EXPECT_EQ(servers.lines(), lines);
  }
}

TEST(QueryFailure, SaysWhoWasNotAskedAndWhy) {
  constexpr auto kMissing = static_cast<HRESULT>(0x80070002);
  EXPECT_FALSE(query_failure(L".", kMissing));
  // The system's own words follow, in its language.
  const auto missing = query_failure(L"*", kMissing)->message();
  EXPECT_TRUE(missing.starts_with(L"Asking the other machines: ")) << missing;
  const auto off = query_failure(L"*", ostra::details::to_hresult(3025))->message();
  EXPECT_TRUE(off.starts_with(L"Only this machine was asked, ")) << off;
}

}  // namespace
}  // namespace tarnwheel::client
