// A client that speaks to the server's pipe byte by byte, and the bytes that it sends: written for
// the tests alone, so that they do not share a mistake with the program's own encoding.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/unique_resource.h"
#include "tests/support/program.h"

namespace system_test {

using Bytes = std::string;

inline constexpr wchar_t kPipeName[] =
    LR"(\\.\pipe\kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01)";

enum Method : std::uint16_t { kEnumeratePorts, kOpenPort, kIoControl, kWrite, kRead };

// The code of a client's connection; the server's own is 0.
constexpr std::uint16_t kClientCode = 0x0C1E;

// Ports of the machine under test. The first sends back what is written to it; the device of the
// next sends nothing by itself. The third's is a file of zeros: it knows no serial control, and a
// second open is refused, which Wine does not do for the ports that have a terminal behind them. The
// refusal has the code ERROR_SHARING_VIOLATION where Windows has ERROR_ACCESS_DENIED.
constexpr std::uint32_t kLoopbackPort = 5;
constexpr std::uint32_t kSilentPort = 9;
constexpr std::uint32_t kFilePort = TARNWHEEL_FILE_PORT;
constexpr std::uint32_t kMissingPort = 77;

// Results.
constexpr std::uint32_t kFileNotFound = 0x80070002;
constexpr std::uint32_t kAccessDenied = 0x80070005;
constexpr std::uint32_t kPortInUse = 0x80070020;
constexpr std::uint32_t kAlreadyHoldsPort = 0x800700B7;
constexpr std::uint32_t kNotConnected = 0x800708CA;  // no port is open

Bytes U32(std::uint32_t value);
Bytes Vector(const Bytes& content);  // count and bytes
Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input = {});
// Bytes of which no two neighbouring stretches are alike.
Bytes Pattern(std::size_t size, std::uint32_t state = 1);
// The number at `offset`, which must lie within `bytes`.
std::uint32_t U32At(const Bytes& bytes, std::size_t offset);

struct Message {
  std::uint32_t call;
  std::uint32_t code_and_method;
  Bytes payload;
};
Bytes Header(std::uint32_t call, std::uint16_t method, std::uint32_t length);
Bytes Request(std::uint32_t call, std::uint16_t method, const Bytes& payload);

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
  // Opens the port as well; a read waits until all that it asks for is there.
  explicit RawClient(std::uint32_t port);

  // Puts the bytes into the pipe; false when a piece of them does not fit in within the deadline.
  bool Send(const Bytes& bytes, DWORD milliseconds = kPatience) const;

  // The next whole message; without one in time TryReceive gives none.
  Message Receive();
  std::optional<Message> TryReceive(DWORD milliseconds);
  // Any bytes that have come, none at the end.
  Bytes ReceiveSome(DWORD milliseconds = kPatience);

  // True when the server ends the connection within the deadline.
  bool ServerHangsUp();

  // Sends a request under a call identifier of its own and expects the next message to be its
  // reply, so nothing sent before was answered late; returns the reply's payload.
  Bytes Call(std::uint16_t method, const Bytes& payload);

  std::uint32_t OpenPort(std::uint32_t number);
  PortResult IoControl(std::uint32_t code, std::uint32_t output_size, const Bytes& input = {});
  std::uint32_t Write(const Bytes& data);
  PortResult Read(std::uint32_t size);

  void ReadsWait();

  void Disconnect() { pipe_.reset(); }

 private:
  // Reads or writes up to `size` bytes, which becomes their number. False when that fails, which
  // GetLastError explains, or takes longer.
  template <class Function, class Buffer>
  bool Transfer(Function function, const Tamrin::unique_handle& event, Buffer* buffer, DWORD& size,
                DWORD milliseconds) const;
  bool Fetch(DWORD milliseconds);  // bytes into the inbox

  Tamrin::unique_file pipe_;
  Tamrin::unique_handle read_event_, write_event_;
  Bytes piece_ = Bytes(0x10000, '\0');  // what a read puts out
  Bytes inbox_;
  std::uint32_t last_call_ = 0x10000;
};

}  // namespace system_test
