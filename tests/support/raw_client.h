// A client that speaks to the server's pipe byte by byte.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_resource.h"
#include "tests/support/patience.h"
#include "tests/support/wire.h"

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

// One connection, for one thread, but that another may send meanwhile. Whatever does not happen
// within the deadline throws std::runtime_error, and so fails the test.
class RawClient {
 public:
  explicit RawClient(const wchar_t* pipe = kPipeName);  // connects

  // Puts the bytes into the pipe; false when they do not fit in within the deadline.
  bool Send(const Bytes& bytes);
  bool Request(std::uint32_t call, std::uint16_t method, const Bytes& payload);

  // The next whole message; without one in time TryReceive gives none.
  Message Receive();
  std::optional<Message> TryReceive(DWORD milliseconds);
  // Any bytes that have come, none at the end.
  Bytes ReceiveSome(DWORD milliseconds = INFINITE);

  // True when the server ends the connection within the deadline.
  bool ServerHangsUp();

  // Sends a request under a call identifier of its own and expects the next message to be its
  // reply, so nothing sent before was answered late; returns the reply's payload.
  Bytes Call(std::uint16_t method, const Bytes& payload);

  std::uint32_t OpenPort(std::uint32_t number);
  PortResult IoControl(std::uint32_t code, std::uint32_t output_size, const Bytes& input);
  std::uint32_t Write(const Bytes& data);
  PortResult Read(std::uint32_t size);

  // Makes every read wait until all that it asks for is there, or for so many milliseconds.
  void ReadsWait(std::uint32_t milliseconds = 0);

  void Disconnect() { pipe_.reset(); }

 private:
  enum class Transfer { kDone, kTimedOut, kBroken };
  template <class Start>
  Transfer Perform(Start start, DWORD& size, DWORD milliseconds);

  Tamrin::unique_file pipe_;
  Transfer last_ = Transfer::kDone;  // of the reads
  Bytes inbox_;
  std::uint32_t last_call_ = 0x10000;
};

}  // namespace system_test
