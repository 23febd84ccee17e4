#include "client/telnet/telnet.h"

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>

namespace tarnwheel::client {
namespace {

using namespace std::string_view_literals;

// Telnet's bytes are written as "^" IAC, "W" WILL, "w" WONT, "D" DO, "d" DONT, "[" SB, "]" SE, "B"
// BREAK, "N" NOP; options as "0" binary (and NUL), "E" echo, "G" go-ahead, "C" port, "T" terminal
// type.
constexpr auto kSymbols = "^WwDd[]BN0EGCT"sv;
constexpr auto kBytes = "\xFF\xFB\xFC\xFD\xFE\xFA\xF0\xF3\xF1\0\1\3,\x18"sv;

std::string Replaced(std::string text, std::string_view from, std::string_view to) {
  for (char& character : text) {
    if (const auto at = from.find(character); at != from.npos)
      character = to[at];
  }
  return text;
}

std::vector<std::byte> Bytes(const std::string& text) {
  const std::string sent = Replaced(text, kSymbols, kBytes);
  const auto view = std::as_bytes(std::span(sent));
  return {view.begin(), view.end()};
}

std::string Text(const std::vector<std::byte>& data) {
  return Replaced({reinterpret_cast<const char*>(data.data()), data.size()}, kBytes, kSymbols);
}

// "data abc, reply ^WE, port xy, break": adjacent items of one kind are joined, except for port.
std::string Shown(const std::vector<telnet_item>& items) {
  static constexpr const char* kKinds[] = {"data ", "port ", "break", "reply "};
  std::string shown, kind;
  for (const telnet_item& item : items) {
    const std::string next = kKinds[static_cast<int>(item.what)];
    if (next != std::exchange(kind, next) || item.what == telnet_item::kind::com_port)
      shown += (shown.empty() ? "" : ", ") + next;
    shown += Text(item.bytes);
  }
  return shown;
}

TEST(Telnet, InputBecomesTheSameItemsWhereverItIsCut) {
  const std::pair<std::string, std::string> rows[] = {
      {"a^^b^^", "data a^b^"},
      {"a\r0b\r\nc0", "data a\rb\r\nc0"},  // CR is padded
      {"^W0\r0", "reply ^D0, data \r0"},   // but not when binary
      {"a^Nb^]^Bz", "data ab, break, data z"},
      {"^DE^WE^WT", "reply ^WE^dE^dT"},                    // echoing is up to the device
      {"^wE^dC^dC^WC^WC^DG^DC^dC", "reply ^DC^WG^WC^wC"},  // only changes are answered
      {"a^[Cx^^y^]b^[Tx^]c", "data a, port x^y, data bc"},
      {"^[Cx^DEx", "reply ^WE, data x"},  // cut short by a command
      {"^[Cx^[Cy^]^[C^]", "port y, port "},
      {"^[C" + std::string(512, 'x') + "^]", "port " + std::string(512, 'x')},
      {"^[C" + std::string(513, 'x') + "^]y", "data y"},
  };
  for (const auto& [input, shown] : rows) {
    const auto whole = Bytes(input);
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      telnet parser;
      auto items = parser.receive(std::span(whole).first(cut));
      std::ranges::move(parser.receive(std::span(whole).subspan(cut)), std::back_inserter(items));
      EXPECT_EQ(Shown(items), shown) << input << " cut at " << cut;
    }
  }
}

// The bridge's test covers the agreement of two ends, and binary data after it.
TEST(Telnet, OutputIsPaddedAndEscaped) {
  EXPECT_EQ(Text(telnet().encode(Bytes("a\rb^\r0"))), "a\r0b^^\r00");
  EXPECT_EQ(Text(telnet::encode_com_port(Bytes("^]"))), "^[C^^]^]");
}

}  // namespace
}  // namespace tarnwheel::client
