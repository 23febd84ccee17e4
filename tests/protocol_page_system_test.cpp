// What docs/protocol.md says, done with a live server.
#include <gtest/gtest.h>

#include <set>

#include "platform/serial.h"
#include "server/test_ports.h"
#include "tests/protocol_page.h"
#include "tests/raw_client.h"
#include "tests/server_process.h"
#include "tests/virtual_port.h"

namespace system_test {
namespace {

using tarnwheel::test::test_port;

// The messages that begin in `bytes`; the last one may be cut.
std::size_t CountMessages(const Bytes& bytes) {
  std::size_t count = 0;
  for (std::size_t at = 0; at + kHeaderSize <= bytes.size(); ++count)
    at += kHeaderSize + U32At(bytes, at + 8);
  return count;
}

// The replies to as many requests as `expected` answers, in the order of `expected`: on the pipe
// they come in any order.
Bytes ReceiveReplies(RawClient& client, const Bytes& expected) {
  std::map<std::uint32_t, Bytes> replies;
  for (std::size_t rest = CountMessages(expected); rest != 0; --rest) {
    const Message reply = client.Receive();
    replies[reply.call] = Encode(reply);
  }
  Bytes ordered;
  for (std::size_t at = 0; at + kHeaderSize <= expected.size();) {
    ordered = Join({ordered, replies[U32At(expected, at)]});
    replies.erase(U32At(expected, at));
    at += kHeaderSize + U32At(expected, at + 8);
  }
  for (const auto& [call, reply] : replies)
    ordered = Join({ordered, reply});
  return ordered;
}

// Sends what the transcript sends, and gives the transcript with what has come back.
Transcript Replay(RawClient& client, Transcript transcript) {
  for (std::size_t first = 0; first < transcript.lines.size();) {
    const char direction = transcript.lines[first].direction;
    std::size_t last = first;
    Bytes bytes;
    for (; last < transcript.lines.size() && transcript.lines[last].direction == direction; ++last)
      bytes = Join({bytes, transcript.lines[last].bytes});
    if (direction == '>') {
      EXPECT_TRUE(client.Send(bytes));
      first = last;
      continue;
    }
    const std::size_t lines_behind = transcript.lines.size() - last;
    transcript.Replace(first, last, ReceiveReplies(client, bytes));
    first = transcript.lines.size() - lines_behind;
  }
  return transcript;
}

TEST(ProtocolPage, TranscriptsAreWhatTheServerSends) {
  const test_port scale(L"COM5", L"Scale (COM5)");
  const test_port modem(L"COM7", L"Modem (COM7)");
  VirtualPort line(7);
  line.LoopBack();
  ServerProcess server(L"--share-ports 5,7,77");
  std::map<std::string, RawClient> connections;
  std::set<std::uint16_t> methods;
  for (const Transcript& transcript : TranscriptsOf(ProtocolPage())) {
    const Transcript actual = Replay(connections[transcript.connection], transcript);
    EXPECT_TRUE(actual.Text() == transcript.Text())
        << "docs/protocol.md differs from the server, which makes it:\n"
        << actual.Text();
    methods.insert(U16At(transcript.lines.at(0).bytes, 6));
  }
  EXPECT_EQ(methods, (std::set<std::uint16_t>{0, 1, 2, 3, 4}));
}

TEST(ProtocolPage, DatagramIsAString) {
  const std::map<std::string, Bytes> expected = {{"LAB-PC", Text(L"LAB-PC")}};
  EXPECT_EQ(DatagramsOf(ProtocolPage()), expected);
}

TEST(ProtocolPage, ControlCodesAreThoseOfSerialDrivers) {
  const std::map<std::string, std::uint32_t> expected = {
#define CODE(name) {#name, name}
      CODE(IOCTL_SERIAL_SET_BAUD_RATE),
      CODE(IOCTL_SERIAL_GET_BAUD_RATE),
      CODE(IOCTL_SERIAL_SET_LINE_CONTROL),
      CODE(IOCTL_SERIAL_GET_LINE_CONTROL),
      CODE(IOCTL_SERIAL_SET_TIMEOUTS),
      CODE(IOCTL_SERIAL_GET_TIMEOUTS),
      CODE(IOCTL_SERIAL_SET_HANDFLOW),
      CODE(IOCTL_SERIAL_GET_HANDFLOW),
      CODE(IOCTL_SERIAL_SET_CHARS),
      CODE(IOCTL_SERIAL_GET_CHARS),
      CODE(IOCTL_SERIAL_SET_DTR),
      CODE(IOCTL_SERIAL_CLR_DTR),
      CODE(IOCTL_SERIAL_SET_RTS),
      CODE(IOCTL_SERIAL_CLR_RTS),
      CODE(IOCTL_SERIAL_GET_DTRRTS),
      CODE(IOCTL_SERIAL_SET_BREAK_ON),
      CODE(IOCTL_SERIAL_SET_BREAK_OFF),
      CODE(IOCTL_SERIAL_GET_MODEMSTATUS),
      CODE(IOCTL_SERIAL_GET_COMMSTATUS),
      CODE(IOCTL_SERIAL_SET_WAIT_MASK),
      CODE(IOCTL_SERIAL_GET_WAIT_MASK),
      CODE(IOCTL_SERIAL_WAIT_ON_MASK),
      CODE(IOCTL_SERIAL_PURGE),
      CODE(IOCTL_SERIAL_SET_XOFF),
      CODE(IOCTL_SERIAL_SET_XON),
      CODE(IOCTL_SERIAL_IMMEDIATE_CHAR),
      CODE(IOCTL_SERIAL_SET_QUEUE_SIZE),
#undef CODE
  };
  EXPECT_EQ(ControlCodesOf(ProtocolPage()), expected);
}

}  // namespace
}  // namespace system_test
