#include "tests/support/tcp_client.h"

// Behind win32.h, which keeps the older socket header away.
#include <winsock2.h>

#include <algorithm>

namespace system_test {
namespace {

void SetLimit(SOCKET socket, int option, DWORD milliseconds) {
  const auto* const bytes = reinterpret_cast<const char*>(&milliseconds);
  Require(::setsockopt(socket, SOL_SOCKET, option, bytes, sizeof milliseconds) == 0, "setsockopt");
}

}  // namespace

TcpClient::TcpClient(std::uint16_t port) {
  WSADATA data;
  static const bool started = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
  socket_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  Require(started && socket_ != INVALID_SOCKET, "socket");
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  const auto* const name = reinterpret_cast<const sockaddr*>(&address);
  Require(::connect(socket_, name, sizeof address) == 0, "connecting");
  SetLimit(socket_, SO_RCVTIMEO, kPatience);
}

TcpClient::~TcpClient() {
  ::closesocket(socket_);
}

bool TcpClient::Send(const Bytes& bytes, DWORD milliseconds) {
  SetLimit(socket_, SO_SNDTIMEO, milliseconds);
  for (std::size_t done = 0; done < bytes.size();) {
    const auto* const rest = reinterpret_cast<const char*>(bytes.data() + done);
    const int sent = ::send(socket_, rest, static_cast<int>(bytes.size() - done), 0);
    if (sent <= 0)
      return false;
    done += static_cast<std::size_t>(sent);
  }
  return true;
}

Bytes TcpClient::Receive(std::size_t size) {
  Bytes received;
  while (received.size() < size) {
    Bytes piece(std::min<std::size_t>(size - received.size(), 0x10000));
    auto* const room = reinterpret_cast<char*>(piece.data());
    const int arrived = ::recv(socket_, room, static_cast<int>(piece.size()), 0);
    Require(arrived >= 0, "waiting for bytes");
    if (arrived == 0)
      break;
    received.insert(received.end(), piece.begin(), piece.begin() + arrived);
  }
  return received;
}

}  // namespace system_test
