// A program at a TCP port of this machine, byte by byte.
#pragma once

#include <cstdint>

#include "platform/unique_resource.h"
#include "tests/patience.h"
#include "tests/wire.h"

namespace system_test {

// One connection, for one thread. What does not come within the deadline fails the test, and the
// call returns what has come.
class TcpClient {
 public:
  explicit TcpClient(std::uint16_t port);  // connects
  TcpClient(const TcpClient&) = delete;
  TcpClient& operator=(const TcpClient&) = delete;
  ~TcpClient();

  // False when the other end has gone, or does not take the bytes within `milliseconds`.
  bool Send(const Bytes& bytes, DWORD milliseconds = kPatience);

  [[nodiscard]] Bytes Receive(std::size_t size);
  [[nodiscard]] Bytes ReceiveUntilEnd();

 private:
  // False at the end, or when nothing comes.
  bool ReceiveSome(Bytes& received, std::size_t most);

  std::uintptr_t socket_;
};

}  // namespace system_test
