#include "client/verbs/discover.h"

#include <gtest/gtest.h>

#include <vector>

#include "async/errors.h"
#include "rpc/discovery_datagram.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

std::wstring Lines(const std::vector<bytes>& answers) {
  answering_servers servers;
  for (const bytes& answer : answers)
    servers.add(answer);
  EXPECT_EQ(servers.empty(), servers.lines().empty());
  return servers.lines();
}

TEST(AnsweringServers, EachIsListedOnceAndSorted) {
  const struct {
    std::vector<const wchar_t*> names;
    const wchar_t* lines;
  } rows[] = {
      {{L"one", L"one", L"ONE", L"one"}, L"one\n"},
      {{L"b", L"C", L"a10", L"A"}, L"A\na10\nb\nC\n"},
      {{L"PC_1", L"pca"}, L"pca\nPC_1\n"},  // as in capitals, where "_" comes last
      {{L"\u00DCber", L"\u00FCber", L"zoo"}, L"zoo\n\u00DCber\n"},
  };
  for (const auto& row : rows) {
    std::vector<bytes> answers;
    for (const auto* name : row.names)
      answers.push_back(tether::make_datagram(name));
    EXPECT_EQ(Lines(answers), row.lines);
  }
}

TEST(AnsweringServers, WhatIsNoAnswerIsIgnored) {
  EXPECT_EQ(Lines({{},
                   bytes(1024, std::byte{0xFF}),
                   tether::make_datagram(L"two\nlines"),
                   tether::make_datagram(L"good")}),
            L"good\n");
}

TEST(QueryFailure, SaysWhoWasNotAskedAndWhy) {
  // The system's own words are in its language, so a row has only the beginning of its message.
  const struct {
    const wchar_t* target;
    DWORD error;
    const wchar_t* beginning;  // "": nothing is said
    const wchar_t* end;
  } rows[] = {
      {L".", 0, L"", L""},
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
