#include "client/telnet/telnet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

bytes Bytes(const std::string& text) {
  const auto view = std::as_bytes(std::span(text));
  return {view.begin(), view.end()};
}

std::string Text(const bytes& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// "data(abc) reply(..) port(..)", with neighbouring data and replies put together.
std::string Shown(const std::vector<telnet_item>& items) {
  std::string shown;
  std::string open;
  const auto close = [&] { shown += std::exchange(open, {}).empty() ? "" : ")"; };
  for (const telnet_item& item : items) {
    const std::string name = item.what == telnet_item::kind::data       ? " data("
                             : item.what == telnet_item::kind::reply    ? " reply("
                             : item.what == telnet_item::kind::com_port ? " port("
                                                                        : " break(";
    if (name != open || item.what == telnet_item::kind::com_port) {
      close();
      shown += name;
      open = name;
    }
    shown += Text(item.bytes);
  }
  close();
  return shown;
}

struct Exchange {
  const char* fault;
  std::string input;
  std::string shown;
};

using namespace std::string_literals;

const Exchange kExchanges[] = {
    {"PlainData", "abc", " data(abc)"},
    {"DoubledIac",
     "a\xFF\xFF"
     "b\xFF\xFF"s,
     " data(a\xFF"
     "b\xFF)"s},
    {"LineEndIsPaddedWithNul", "a\r\0b\r\nc\0"s, " data(a\rb\r\nc\0)"s},
    {"CommandWithoutMeaning",
     "a\xFF\xF1"
     "b\xFF\xF6"s,
     " data(ab)"},
    {"Break", "a\xFF\xF3\x62"s, " data(a) break() data(b)"s},
    {"EchoIsTheDevices", "\xFF\xFD\x01\xFF\xFB\x01"s, " reply(\xFF\xFB\x01\xFF\xFE\x01)"s},
    {"StrangeOptionIsRefused", "\xFF\xFB\x2D"s, " reply(\xFF\xFE\x2D)"s},
    {"NoIsNotAnswered", "\xFF\xFC\x01\xFF\xFE\x2C\xFF\xFE\x2C"s, ""},
    {"WantedOptionIsAgreedTo", "\xFF\xFB\x2C\xFF\xFD\x03"s, " reply(\xFF\xFD\x2C\xFF\xFB\x03)"s},
    {"AgreementIsSaidOnce", "\xFF\xFB\x2C\xFF\xFB\x2C\xFF\xFB\x2C"s, " reply(\xFF\xFD\x2C)"s},
    {"OptionIsGivenUp", "\xFF\xFD\x2C\xFF\xFE\x2C"s, " reply(\xFF\xFB\x2C\xFF\xFC\x2C)"s},
    {"NulAfterLineEndIsDataWhenBinary", "\xFF\xFB\x00\r\0"s, " reply(\xFF\xFD\x00) data(\r\0)"s},
    {"Subnegotiation",
     "a\xFF\xFA\x2C\x01\xFF\xFF\x02\xFF\xF0"
     "b"s,
     " data(a) port(\x01\xFF\x02) data(b)"s},
    {"SubnegotiationOfAnother",
     "\xFF\xFA\x18\x01\xFF\xF0"
     "b"s,
     " data(b)"},
    {"EmptySubnegotiation", "\xFF\xFA\x2C\xFF\xF0"s, " port()"},
    {"SubnegotiationCutByACommand", "\xFF\xFA\x2C\x01\xFF\xFD\x01x"s,
     " reply(\xFF\xFB\x01) data(x)"s},
    {"SubnegotiationCutByAnother", "\xFF\xFA\x2C\x01\xFF\xFA\x2C\x02\xFF\xF0"s, " port(\x02)"},
    {"TooLongSubnegotiation", "\xFF\xFA\x2C"s + std::string(513, 'x') + "\xFF\xF0y"s, " data(y)"},
    {"EndWithoutBeginning", "\xFF\xF0z"s, " data(z)"},
};

TEST(Telnet, InputBecomesItemsWhereverItIsCut) {
  for (const Exchange& row : kExchanges) {
    EXPECT_EQ(Shown(telnet().receive(Bytes(row.input))), row.shown) << row.fault;
    telnet end;
    std::vector<telnet_item> items;
    for (const std::byte byte : Bytes(row.input))
      std::ranges::move(end.receive(std::span(&byte, 1)), std::back_inserter(items));
    EXPECT_EQ(Shown(items), row.shown) << row.fault << ", byte by byte";
  }
}

TEST(Telnet, TwoEndsAgreeAndFallSilent) {
  telnet one;
  telnet other;
  bytes to_other = one.offer();
  bytes to_one = other.offer();
  const auto replies = [](telnet& end, const bytes& input) {
    bytes output;
    for (const telnet_item& item : end.receive(input))
      output.insert(output.end(), item.bytes.begin(), item.bytes.end());
    return output;
  };
  for (int round = 0; round < 3; ++round) {
    const bytes next = replies(other, to_other);
    to_other = replies(one, to_one);
    to_one = next;
  }
  EXPECT_TRUE(to_one.empty());
  EXPECT_TRUE(to_other.empty());
  EXPECT_TRUE(one.controls_port());
  EXPECT_EQ(Text(one.encode(Bytes("a\rb"))), "a\rb");
}

TEST(Telnet, WhatIsEncodedIsReceivedUnchanged) {
  telnet sender;
  telnet receiver;
  std::string all;
  for (int byte = 0; byte < 512; ++byte)
    all.push_back(static_cast<char>(byte % 256));
  all += "\r\n\r\r\xFF\r\xFF";
  bytes arrived;
  const auto send = [&](const std::string& data) {
    for (const telnet_item& item : receiver.receive(sender.encode(Bytes(data))))
      arrived.insert(arrived.end(), item.bytes.begin(), item.bytes.end());
  };
  send(all.substr(0, 14));  // ends with a carriage return
  send(all.substr(14));
  EXPECT_EQ(Text(arrived), all);

  const auto items = receiver.receive(telnet::encode_com_port(Bytes(all)));
  ASSERT_EQ(items.size(), 0u);  // it is too long
  EXPECT_EQ(Shown(receiver.receive(telnet::encode_com_port(Bytes("\xFF\xF0")))), " port(\xFF\xF0)");
}

}  // namespace
}  // namespace tarnwheel::client
