// Accepts programs over TCP.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

struct tcp_address {
  std::wstring host;  // a numeric address or a name
  std::uint16_t port = 0;
};

// "4000" is a port of the loopback address, "192.168.1.7:4000" and "[::1]:4000" name an address;
// port 0 leaves the choice to the system. Throws cmd_line_syntax_error.
[[nodiscard]] tcp_address parse_tcp_address(std::wstring_view text);

// True for an address that only programs on this machine can reach.
[[nodiscard]] bool is_loopback(const tcp_address& address);

// Throws client_error when the address cannot be listened on.
[[nodiscard]] std::unique_ptr<stream_listener> listen_tcp(const tcp_address& address);

}  // namespace tarnwheel::client
