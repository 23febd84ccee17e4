#include "tests/tcp_client.h"

#include <gtest/gtest.h>

// Behind win32.h, which keeps the older socket header away.
#include <winsock2.h>

#include <algorithm>
#include <array>

namespace system_test {
namespace {

constexpr std::size_t kGreatestRead = 0x10000;

void StartWinsock() {
  WSADATA data;
  static const bool started = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
  Require(started, "WSAStartup");
}

void SetLimit(SOCKET socket, int option, DWORD milliseconds) {
  const std::array limit = {milliseconds};
  const auto* const bytes = reinterpret_cast<const char*>(limit.data());
  Require(::setsockopt(socket, SOL_SOCKET, option, bytes, sizeof limit) == 0, "setsockopt");
}

}  // namespace

TcpClient::TcpClient(std::uint16_t port) {
  StartWinsock();
  socket_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  Require(socket_ != INVALID_SOCKET, "socket");
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
  const auto* rest = reinterpret_cast<const char*>(bytes.data());
  const auto* const end = rest + bytes.size();
  while (rest != end) {
    const int sent = ::send(socket_, rest, static_cast<int>(end - rest), 0);
    if (sent <= 0)
      return false;
    rest += sent;
  }
  return true;
}

bool TcpClient::ReceiveSome(Bytes& received, std::size_t most) {
  const std::size_t before = received.size();
  received.resize(before + std::min(most, kGreatestRead));
  auto* const room = reinterpret_cast<char*>(received.data() + before);
  const int size = ::recv(socket_, room, static_cast<int>(received.size() - before), 0);
  if (size < 0)
    ADD_FAILURE() << "nothing came: " << ::WSAGetLastError();
  received.resize(before + static_cast<std::size_t>(std::max(size, 0)));
  return size > 0;
}

Bytes TcpClient::Receive(std::size_t size) {
  Bytes received;
  while (received.size() < size && ReceiveSome(received, size - received.size()))
    continue;
  return received;
}

Bytes TcpClient::ReceiveUntilEnd() {
  Bytes received;
  while (ReceiveSome(received, kGreatestRead))
    continue;
  return received;
}

}  // namespace system_test
