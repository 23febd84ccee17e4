// A program at a TCP port of this machine, byte by byte.
#pragma once

#include <cstdint>

#include "tests/support/patience.h"
#include "tests/support/wire.h"

namespace system_test {

// One connection, for one thread. What does not come within the deadline throws std::runtime_error.
class TcpClient {
 public:
  explicit TcpClient(std::uint16_t port);  // connects
  TcpClient(const TcpClient&) = delete;
  TcpClient& operator=(const TcpClient&) = delete;
  ~TcpClient();

  // False when the other end has gone, or does not take the bytes within `milliseconds`.
  bool Send(const Bytes& bytes, DWORD milliseconds = kPatience);

  // So many bytes, or those until the other end goes.
  [[nodiscard]] Bytes Receive(std::size_t size = SIZE_MAX);

 private:
  std::uintptr_t socket_;
};

}  // namespace system_test
