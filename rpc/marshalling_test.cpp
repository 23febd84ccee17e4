#include "rpc/marshalling.h"

#include <algorithm>

#include "tests/support/unit/memory_transport.h"
#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using testing_support::code_of;

std::vector<std::byte> BytesOf(const std::vector<int>& values) {
  std::vector<std::byte> bytes(values.size());
  std::ranges::transform(values, bytes.begin(), [](int value) { return std::byte(value); });
  return bytes;
}

TEST(Marshalling, MessagesHaveTheExactBytesAndAreReadBack) {
  message_t message({0, 0x0506, 0x0708, 99});
  message.set_call(0x01020304);
  payload_writer writer(message);
  writer.write_integer(0xA1B2C3D4);
  writer.write_bytes(BytesOf({1, 2}));
  writer.write_string(L"z\x20AC");
  const auto expected = BytesOf({4,    3, 2, 1, 6, 5, 8, 7, 18, 0, 0, 0,   0xD4, 0xC3, 0xB2,
                                 0xA1, 2, 0, 0, 0, 1, 2, 2, 0,  0, 0, 'z', 0,    0xAC, 0x20});
  EXPECT_TRUE(std::ranges::equal(message.bytes(), expected));

  payload_reader reader(message.bytes().subspan(sizeof(message_header)));
  EXPECT_EQ(reader.read_integer(), 0xA1B2C3D4);
  EXPECT_EQ(reader.read_bytes(), BytesOf({1, 2}));
  EXPECT_EQ(reader.read_string(), L"z\x20AC");
  EXPECT_EQ(code_of([&] { return reader.read_integer(); }), kMalformedPayload);
}

// The block grows with the payload, in pieces of the size in which it crosses the pipe.
TEST(MessageReceiver, BlockGrowsWithWhatHasCome) {
  const auto payload = test::Pattern(400'000);
  MessageReceiver receiver({1, 2, 3, 400'000});
  std::vector<std::size_t> rooms;
  for (std::size_t arrived = 0; !receiver.is_complete();) {
    const auto room = receiver.room();
    rooms.push_back(room.size());
    const auto size = std::min<std::size_t>(room.size(), 50'000);
    std::copy_n(payload.data() + arrived, size, room.data());
    receiver.advance(size);
    arrived += size;
  }
  rooms.resize(3);
  EXPECT_EQ(rooms, (std::vector<std::size_t>{65'524, 15'524, 65'536}));
  EXPECT_TRUE(std::ranges::equal(receiver.take()->payload(), payload));
  EXPECT_EQ(code_of([] {
              return MessageReceiver({1, 2, 3, kMaxPayload + 1}), 0;
            }),
            kMessageTooLong);
}

}  // namespace
}  // namespace tether
