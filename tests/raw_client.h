// A client that speaks to the server's pipe byte by byte.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_resource.h"
#include "tests/patience.h"
#include "tests/wire.h"

namespace system_test {

inline constexpr wchar_t kPipeName[] =
    LR"(\\.\pipe\kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01)";

// The code of a client's connection; the server's own is 0.
constexpr std::uint16_t kClientCode = 0x0C1E;

// What IoControl and Read answer: an HRESULT and bytes.
struct PortResult {
  std::uint32_t code;
  Bytes data;

  bool operator==(const PortResult&) const = default;
};
std::ostream& operator<<(std::ostream& out, const PortResult& result);

// One connection, for one thread. Whatever does not happen within the deadline fails the test, and
// the call returns as if nothing had come.
class RawClient {
 public:
  RawClient();  // connects
  RawClient(RawClient&&) = default;
  RawClient& operator=(RawClient&&) = default;
  ~RawClient();

  // Puts the bytes into the pipe; false when they do not fit in within the deadline.
  bool Send(const Bytes& bytes);
  bool Request(std::uint32_t call, std::uint16_t method, const Bytes& payload,
               std::uint16_t code = kClientCode);

  // The next whole message.
  Message Receive();
  // The same where none may come: nothing then, and no failure of the test.
  std::optional<Message> TryReceive(DWORD milliseconds);

  // True when the server ends the connection within the deadline.
  bool ServerHangsUp();

  // Sends a request under a call identifier of its own and expects the next message to be its
  // reply, so nothing sent before was answered late; returns the reply's payload.
  Bytes Call(std::uint16_t method, const Bytes& payload);

  std::uint32_t OpenPort(std::uint32_t number);
  PortResult IoControl(std::uint32_t code, std::uint32_t output_size, const Bytes& input);
  std::uint32_t Write(const Bytes& data);
  PortResult Read(std::uint32_t size);

  // Sets the port's read time-outs, in milliseconds.
  void SetReadTimeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant);
  // Makes every read wait until all that it asks for is there.
  void ReadsWaitForEver() { SetReadTimeouts(0, 0, 0); }

  void Disconnect();

 private:
  enum class Transfer { kDone, kTimedOut, kBroken };
  template <class Start>
  Transfer Perform(Start start, DWORD& size, DWORD milliseconds = kPatience);
  Transfer FillInbox(DWORD milliseconds = kPatience);
  [[nodiscard]] bool HasMessage() const;
  Message TakeMessage();
  Bytes Take(std::size_t size);

  Tamrin::unique_file pipe_;
  Tamrin::unique_handle event_;
  Bytes inbox_;
  std::uint32_t last_call_ = 0x10000;
};

// The payloads of requests.
Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input);
Bytes ReadTimeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant);

}  // namespace system_test
