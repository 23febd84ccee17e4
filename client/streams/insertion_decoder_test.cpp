#include "client/streams/insertion_decoder.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwheel::client {
namespace {

using namespace std::string_literals;

// Data unchanged, every other item as <number:bytes of the value>.
std::string Decoded(const std::string& input, std::size_t cut) {
  insertion_decoder decoder;
  std::string text;
  const auto stream = std::as_bytes(std::span(input));
  for (const auto part : {stream.first(cut), stream.subspan(cut)}) {
    for (const auto& [what, value] : decoder.decode(part)) {
      const std::string item(reinterpret_cast<const char*>(value.data()), value.size());
      const int number = static_cast<int>(what);
      text += what == insertion::data ? item : "<" + std::to_string(number) + ":" + item + ">";
    }
  }
  return text;
}

TEST(InsertionDecoder, AnyCutGivesTheSame) {
  const auto input =
      "a\xF5\0b\xF5\x10\xF5\0\1\2\xF5\x11\7\2\1\xF5\2\x10\xF5\1\4c\xF5\3\xF5\xF5\x63"
      "d\xF5\0"s;
  const auto items =
      "a\xF5"
      "b<16:\xF5\0\1\2><17:\7\2\1><2:\x10><2:\4>c<3:\xF5>d\xF5"s;
  for (std::size_t cut = 0; cut <= input.size(); ++cut)
    EXPECT_EQ(Decoded(input, cut), items) << cut;
}

}  // namespace
}  // namespace tarnwheel::client
