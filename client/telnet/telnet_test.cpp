#include "client/telnet/telnet.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

// Telnet's bytes are written as "^" IAC, "W" WILL, "w" WONT, "D" DO, "d" DONT, "[" SB, "]" SE, "B"
// BREAK, "N" NOP; options as "0" binary (and NUL), "E" echo, "G" go-ahead, "C" port, "T" terminal type.
constexpr char kSymbols[] = "^WwDd[]BN0EGCT";
constexpr unsigned char kBytes[] = {255, 251, 252, 253, 254, 250, 240, 243, 241, 0, 1, 3, 44, 24};

bytes Bytes(const std::string& text) {
  bytes data;
  for (const char character : text) {
    const std::size_t symbol = std::string_view(kSymbols).find(character);
    data.push_back(std::byte(symbol < sizeof kBytes ? kBytes[symbol] : character));
  }
  return data;
}

std::string Text(const bytes& data) {
  std::string text;
  for (const std::byte byte : data) {
    const auto* const symbol = std::ranges::find(kBytes, std::to_integer<unsigned char>(byte));
    text += symbol != std::end(kBytes) ? kSymbols[symbol - kBytes] : static_cast<char>(byte);
  }
  return text;
}

// "data abc, reply ^WE, port xy, break", in which neighbours of a kind are one, but for port's.
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
      {"abc", "data abc"},
      {"a^^b^^", "data a^b^"},
      {"a\r0b\r\nc0", "data a\rb\r\nc0"},  // a line's end is padded
      {"^W0\r0", "reply ^D0, data \r0"},   // but not when binary
      {"a^Nb^N", "data ab"},
      {"a^Bb", "data a, break, data b"},
      {"^DE^WE", "reply ^WE^dE"},  // it is the device that echoes
      {"^WT", "reply ^dT"},
      {"^wE^dC^dC", ""},
      {"^WC^WC^DG", "reply ^DC^WG"},  // agreement is said once
      {"^DC^dC", "reply ^WC^wC"},
      {"a^[Cx^^y^]b", "data a, port x^y, data b"},
      {"^[Tx^]b", "data b"},
      {"^[C^]", "port "},
      {"^[Cx^DEx", "reply ^WE, data x"},  // cut by a command
      {"^[Cx^[Cy^]^[Cz^]", "port y, port z"},
      {"^[C" + std::string(512, 'x') + "^]", "port " + std::string(512, 'x')},
      {"^[C" + std::string(513, 'x') + "^]y", "data y"},
      {"^]z", "data z"},
  };
  for (const auto& [input, shown] : rows) {
    const bytes whole = Bytes(input);
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      telnet parser;
      auto items = parser.receive(std::span(whole).first(cut));
      std::ranges::move(parser.receive(std::span(whole).subspan(cut)), std::back_inserter(items));
      EXPECT_EQ(Shown(items), shown) << input << " cut at " << cut;
    }
  }
}

TEST(Telnet, TwoEndsAgreeAndFallSilent) {
  telnet one, other;
  // Both offer at once, and refuse each other's echo.
  const bytes to_one = other.offer();
  EXPECT_EQ(Shown(other.receive(one.offer())), "reply ^dE");
  EXPECT_EQ(Shown(one.receive(to_one)), "reply ^dE");
  EXPECT_EQ(Shown(one.receive(Bytes("^dE"))) + Shown(other.receive(Bytes("^dE"))), "");
  EXPECT_TRUE(one.controls_port());
  EXPECT_EQ(Text(one.encode(Bytes("a\rb"))), "a\rb");
  EXPECT_EQ(Text(telnet().encode(Bytes("a\rb^"))), "a\r0b^^");
  EXPECT_EQ(Text(telnet::encode_com_port(Bytes("^]"))), "^[C^^]^]");
}

}  // namespace
}  // namespace tarnwheel::client
