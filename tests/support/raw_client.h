// A client that talks to the server's pipe byte by byte, with an encoding of its own, so that the
// tests do not share a mistake with the program's encoding.
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

// The client's connection code; the server's own is 0.
constexpr std::uint16_t kClientCode = 0x0C1E;

// Ports of the machine under test. The first is a loopback. The device of the second sends nothing
// by itself. That of the third is a file of zeros: it supports no serial controls, and Wine refuses
// to open it twice, unlike the ports that have a terminal behind them. The refusal has the code
// ERROR_SHARING_VIOLATION where Windows has ERROR_ACCESS_DENIED.
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
Bytes Vector(const Bytes& content);  // the count, then the bytes
Bytes ControlArguments(std::uint32_t code, std::uint32_t output_size, const Bytes& input = {});
// Pseudo-random bytes, so that lost or misplaced pieces show.
Bytes Pattern(std::size_t size, std::uint32_t state = 1);
// The number at `offset`; throws std::runtime_error if it does not lie within `bytes`.
std::uint32_t U32At(const Bytes& bytes, std::size_t offset);

struct Message {
  std::uint32_t call;
  std::uint32_t code_and_method;
  Bytes payload;
};
Bytes Header(std::uint32_t call, std::uint16_t method, std::uint32_t length);
Bytes Request(std::uint32_t call, std::uint16_t method, const Bytes& payload);

// The answer to IoControl and Read: an HRESULT and bytes.
struct PortResult {
  std::uint32_t code;
  Bytes data;

  bool operator==(const PortResult&) const = default;
};

// One connection. One thread uses it, while another may send. Unless a function says otherwise, a
// missed deadline throws std::runtime_error and so fails the test.
class RawClient {
 public:
  explicit RawClient(const wchar_t* pipe = kPipeName);  // connects
  // Also opens the port; a read then waits for all the bytes that it asks for.
  explicit RawClient(std::uint32_t port);

  // Writes the bytes to the pipe in pieces; false if one fails or takes longer than `milliseconds`.
  bool Send(const Bytes& bytes, DWORD milliseconds = kPatience) const;

  // The next whole message. TryReceive returns none if it does not arrive in time.
  Message Receive();
  std::optional<Message> TryReceive(DWORD milliseconds);
  // Waits for bytes and returns those that have arrived; none at the end or after `milliseconds`.
  Bytes ReceiveSome(DWORD milliseconds = kPatience);

  // True when the server ends the connection within the deadline.
  bool ServerHangsUp();

  // Sends a request with a new call identifier and returns the payload of its reply. The next
  // message must be that reply, so a late answer to an earlier request fails the test.
  Bytes Call(std::uint16_t method, const Bytes& payload);

  std::uint32_t OpenPort(std::uint32_t number);
  PortResult IoControl(std::uint32_t code, std::uint32_t output_size, const Bytes& input = {});
  std::uint32_t Write(const Bytes& data);
  PortResult Read(std::uint32_t size);

  void MakeReadsWait();

  void Disconnect() { pipe_.reset(); }

 private:
  // Reads or writes up to `size` bytes and sets `size` to their number. False, with the reason in
  // GetLastError, if that fails or is cancelled after `milliseconds`.
  template <class Function, class Buffer>
  bool Transfer(Function function, const Tamrin::unique_handle& event, Buffer* buffer, DWORD& size,
                DWORD milliseconds) const;
  bool Fetch(DWORD milliseconds);  // appends bytes to the inbox

  Tamrin::unique_file pipe_;
  Tamrin::unique_handle read_event_, write_event_;
  Bytes piece_ = Bytes(0x10000, '\0');  // the buffer for reads
  Bytes inbox_;
  std::uint32_t last_call_ = 0x10000;
};

}  // namespace system_test
