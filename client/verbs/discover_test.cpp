#include "client/verbs/discover.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "rpc/discovery_datagram.h"

namespace tarnwheel::client {
namespace {

TEST(AnsweringServers, EachIsListedOnceAndSorted) {
  const std::pair<std::vector<const wchar_t*>, const wchar_t*> rows[] = {
      {{L"one", L"ONE", L"one", L"two\nlines"}, L"one\n"},  // the last is no answer
      {{L"b", L"C", L"a10", L"A"}, L"A\na10\nb\nC\n"},
      {{L"\u00DCber", L"\u00FCber", L"zoo"}, L"zoo\n\u00DCber\n"},
  };
  for (const auto& [names, lines] : rows) {
    answering_servers servers;
    servers.add({});
    EXPECT_TRUE(servers.empty());
    for (const auto* name : names)
      servers.add(tether::make_datagram(name));
    EXPECT_EQ(servers.lines(), lines);
  }
}

TEST(QueryFailure, SaysWhoWasNotAskedAndWhy) {
  // The system's own words are in its language, so a row has only the beginning of its message.
  const struct {
    const wchar_t* target;
    DWORD error;
    const wchar_t* beginning;  // "": nothing is said
    const wchar_t* end;
  } rows[] = {
      {L".", 2, L"", L""},
      {L"*", 2, L"Asking the other machines: ", L" (0x80070002)"},
      {L"*", 3025, L"Only this machine was asked, ", L" directly (0x80070bd1)"},
  };
  for (const auto& row : rows) {
    const auto failure = query_failure(row.target, ostra::details::to_hresult(row.error));
    const std::wstring message = failure ? failure->message() : L"";
    EXPECT_EQ(message.empty(), *row.beginning == L'\0') << row.error;
    EXPECT_TRUE(message.starts_with(row.beginning) && message.ends_with(row.end)) << row.error;
  }
}

}  // namespace
}  // namespace tarnwheel::client
