// The interface that a server offers to each of its clients over the pipe, and its counterpart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "async/future.h"
#include "platform/win32.h"

namespace tether {

// The pipe on which a server offers the interface. The name ends in the protocol version, so a
// client of another version does not find it.
inline constexpr wchar_t kServerPipe[] = L"kelvarine_{5C3E1A70-8B24-4D19-9F6E-2A7B4C8D1E03}_v1.01";

// The most output, in bytes, that one request may ask of a device.
inline constexpr std::uint32_t kMaxOutput = 1024 * 1024;
inline constexpr HRESULT kOutputTooLarge =
    static_cast<HRESULT>(0x800706F8);  // ERROR_INVALID_USER_BUFFER

struct port_record {
  std::wstring friendly_name;
  std::uint32_t number = 0;  // the n of COMn
};

struct bytes_result {
  HRESULT code = S_OK;
  std::vector<std::byte> bytes;
};

// The order of the methods determines their numbers on the wire. Ordinary failures are HRESULTs in
// the result. A method that throws gets no reply at all: its caller waits until the connection
// ends.
class IServer_Remote {
 public:
  // The ports that this client may use, in ascending order of number.
  virtual ostra::future<std::vector<port_record>> EnumeratePorts() = 0;

  // Opens COM`number` exclusively for this client. It stays open until the client disconnects.
  virtual ostra::future<HRESULT> OpenPort(std::uint32_t number) = 0;

  // A device-control request on the open port, with at most `output_size` bytes of output. A size
  // above kMaxOutput is refused with kOutputTooLarge.
  virtual ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                                std::vector<std::byte> input) = 0;
  virtual ostra::future<HRESULT> Write(std::vector<std::byte> data) = 0;

  // Reads up to `size` bytes, at most kMaxOutput; fewer, or none, as the port's read time-outs
  // dictate.
  virtual ostra::future<bytes_result> Read(std::uint32_t size) = 0;

  virtual ~IServer_Remote() = default;
};

enum class method : std::uint16_t { EnumeratePorts, OpenPort, IoControl, Write, Read };

// The methods that a client offers to its server: none so far.
class IClient_Local {
 public:
  virtual ~IClient_Local() = default;
};

}  // namespace tether
