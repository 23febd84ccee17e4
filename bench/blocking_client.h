// The leanest client there can be: one blocking handle and the bytes of the protocol. What it adds
// to a measurement is next to nothing, and the same for every server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/unique_resource.h"
#include "platform/win32.h"
#include "rpc/iserver_remote.h"

namespace bench {

using Bytes = std::vector<std::byte>;

[[nodiscard]] Bytes Integer(std::uint32_t value);
[[nodiscard]] Bytes Join(const Bytes& first, const Bytes& second);
// Its size, then the bytes.
[[nodiscard]] Bytes Vector(std::span<const std::byte> content);

// Every function throws hresult_error when the pipe breaks.
class BlockingClient {
 public:
  // Connects to the pipe of that name on this machine; waits for it without limit.
  explicit BlockingClient(const std::wstring& pipe);

  // Sends a request and gives the payload of the next message, which stays until the next call.
  std::span<const std::byte> Call(tether::method method, const Bytes& arguments);

  void Send(tether::method method, const Bytes& arguments);
  void SendBytes(std::span<const std::byte> bytes);
  std::span<const std::byte> Receive();

  // Asks again until another client has let go of the port; throws what else stands in the way.
  void OpenPort(std::uint32_t number);

  // A call that the server answers without touching anything: a read while no port is open.
  void NullCall();

 private:
  void ReadExactly(std::byte* buffer, std::size_t size);

  Tamrin::unique_file pipe_;
  std::uint32_t last_call_ = 0;
  Bytes request_;
  Bytes reply_;
};

}  // namespace bench
