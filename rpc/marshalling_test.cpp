#include "rpc/marshalling.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "rpc/test_support.h"

namespace tether {
namespace {

using test::code_of;

std::vector<std::byte> bytes_of(const std::vector<int>& values) {
  std::vector<std::byte> bytes;
  for (const int value : values)
    bytes.push_back(static_cast<std::byte>(value));
  return bytes;
}

TEST(Marshalling, MessagesHaveTheExactBytes) {
  message_t message({0x01020304, 0x0506, 0x0708, 99});
  payload_writer writer(message);
  writer.write_integer(0xA1B2C3D4);
  writer.write_bytes(bytes_of({1, 2}));
  writer.write_string(L"z\x20AC");
  const auto expected = bytes_of({4,    3, 2, 1, 6, 5, 8, 7, 18, 0, 0, 0,   0xD4, 0xC3, 0xB2,
                                  0xA1, 2, 0, 0, 0, 1, 2, 2, 0,  0, 0, 'z', 0,    0xAC, 0x20});
  const auto bytes = message.bytes();
  EXPECT_EQ(std::vector(bytes.begin(), bytes.end()), expected);
  message.set_call(5);
  EXPECT_EQ(message.bytes()[0], std::byte{5});
}

TEST(Marshalling, ReaderGivesBackWhatTheWriterWrote) {
  message_t message(message_header{});
  payload_writer writer(message);
  writer.write_bytes({});
  writer.write_string(L"name");
  writer.write_integer(7);
  payload_reader reader(message.bytes().subspan(sizeof(message_header)));
  EXPECT_TRUE(reader.read_bytes().empty());
  EXPECT_EQ(reader.read_string(), L"name");
  EXPECT_EQ(reader.read_integer(), 7u);
  EXPECT_EQ(code_of([&] { reader.read_integer(); }), kMalformedPayload);
}

TEST(Marshalling, NothingIsReadBehindThePayload) {
  const std::vector<int> rows[] = {{},
                                   {1},
                                   {1, 0, 0},
                                   {1, 0, 0, 0},
                                   {3, 0, 0, 0, 1, 2},
                                   {0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4},
                                   {0, 0, 0, 0x80, 1, 2}};
  for (const auto& row : rows) {
    // In a block of exactly its size, so that a checking heap sees any step beyond.
    const auto payload = bytes_of(row);
    EXPECT_EQ(code_of([&] { payload_reader(payload).read_bytes(); }), kMalformedPayload);
    EXPECT_EQ(code_of([&] { payload_reader(payload).read_string(); }), kMalformedPayload);
  }
}

// The block grows with the payload, in pieces of the size in which it crosses the pipe.
TEST(Marshalling, ReceivedMessageIsPutTogetherFromPieces) {
  constexpr std::size_t kSize = 400'000;
  MessageReceiver receiver({1, 2, 3, kSize});
  std::size_t arrived = 0;
  std::vector<std::size_t> rooms;
  while (!receiver.is_complete()) {
    const auto room = receiver.room();
    if (rooms.size() < 3)
      rooms.push_back(room.size());
    const auto size = std::min<std::size_t>(room.size(), 50'000);
    for (std::size_t i = 0; i < size; ++i)
      room[i] = static_cast<std::byte>((arrived + i) % 251);
    receiver.advance(size);
    arrived += size;
  }
  EXPECT_EQ(rooms, (std::vector<std::size_t>{65'524, 15'548, 65'536}));
  const auto message = receiver.take();
  EXPECT_EQ(message->header().method, 3);
  ASSERT_EQ(message->payload().size(), kSize);
  for (std::size_t i = 0; i < kSize; ++i)
    ASSERT_EQ(message->payload()[i], static_cast<std::byte>(i % 251)) << i;
  EXPECT_EQ(code_of([] { MessageReceiver({1, 2, 3, kMaxPayload + 1}); }), kMessageTooLong);
}

}  // namespace
}  // namespace tether
