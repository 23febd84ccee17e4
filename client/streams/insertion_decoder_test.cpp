#include "client/streams/insertion_decoder.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

using namespace std::string_literals;

// Items as their number and value, in bytes: data that follow one another are one item.
std::string Decoded(const std::string& input, std::size_t cut) {
  insertion_decoder decoder;
  std::string text;
  int last = -1;
  const auto bytes = std::as_bytes(std::span(input));
  for (const auto part : {bytes.first(cut), bytes.subspan(cut)}) {
    for (const received_item& item : decoder.decode(part)) {
      if (static_cast<int>(item.what) != last || last != 0)
        text += "|" + std::to_string(last = static_cast<int>(item.what)) + ":";
      for (const std::byte byte : item.bytes)
        text += static_cast<char>(byte);
    }
  }
  return text;
}

TEST(InsertionDecoder, AnyCutGivesTheSame) {
  const auto input =
      "a\xF5\0b\xF5\x10\xF5\0\1\2\xF5\x11\7\2\1\xF5\2\x10\xF5\1\4c\xF5\3\xF5\xF5\x63"s
      "d\xF5\0"s;
  const auto items =
      "|0:a\xF5"s
      "b|16:\xF5\0\1\2|17:\7\2\1|2:\x10|2:\4|0:c|3:\xF5|0:d\xF5"s;
  for (std::size_t cut = 0; cut <= input.size(); ++cut)
    EXPECT_EQ(Decoded(input, cut), items) << cut;
}

}  // namespace
}  // namespace tarnwheel::client
