#include "client/streams/tcp_listener.h"

// After win32.h, which keeps the older socket header out.
#include "platform/win32.h"

#include <mswsock.h>
#include <winsock2.h>
#include <ws2tcpip.h>

// After those, whose types it uses.
#include <mstcpip.h>

#include <array>
#include <functional>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/numbers.h"
#include "client/line/client_error.h"
#include "client/streams/handle_stream.h"
#include "format/format.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kLoopback[] = L"127.0.0.1";

// In milliseconds. The loss of a program's machine is noticed after half a minute and then, on
// Windows, ten probes.
constexpr tcp_keepalive kKeepAlive = {1, 30'000, 5000};

constexpr DWORD kAddressRoom = sizeof(sockaddr_storage) + 16;  // as AcceptEx requires

constexpr known_cause kTcpCauses[] = {
    {WSAEADDRINUSE, L"{0} is in use by another program", failure::local},
    {WSAEACCES, L"{0} is in use by another program", failure::local},
    {WSAEADDRNOTAVAIL, L"{0} is not an address of this machine", failure::local},
    {WSAHOST_NOT_FOUND, L"{0} is not an address of this machine", failure::local},
};

struct socket_traits {
  using pointer = SOCKET;
  static pointer invalid() noexcept { return INVALID_SOCKET; }
  static void close(pointer socket) noexcept { ::closesocket(socket); }
};
using unique_socket = Tamrin::unique_resource<socket_traits>;

struct address_list_traits {
  using pointer = ADDRINFOW*;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer list) noexcept { ::FreeAddrInfoW(list); }
};
using unique_address_list = Tamrin::unique_resource<address_list_traits>;

// Keeps Winsock initialised while there are sockets.
class winsock {
 public:
  winsock() {
    WSADATA data;
    if (const int error = ::WSAStartup(MAKEWORD(2, 2), &data); error != 0)
      ostra::details::throw_win32(static_cast<DWORD>(error));
  }
  winsock(const winsock&) = delete;
  winsock& operator=(const winsock&) = delete;
  ~winsock() { ::WSACleanup(); }
};

void check_socket_call(int outcome) {
  if (outcome == SOCKET_ERROR)
    ostra::details::throw_win32(static_cast<DWORD>(::WSAGetLastError()));
}

void set_option(const unique_socket& socket, int level, int option, const void* value, int size) {
  check_socket_call(
      ::setsockopt(socket.get(), level, option, static_cast<const char*>(value), size));
}

void keep_alive(const unique_socket& socket) {
  tcp_keepalive settings = kKeepAlive;
  DWORD size = 0;
  check_socket_call(::WSAIoctl(socket.get(), SIO_KEEPALIVE_VALS, &settings, sizeof settings,
                               nullptr, 0, &size, nullptr, nullptr));
}

unique_socket make_socket(int family) {
  unique_socket socket(
      ::WSASocketW(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED));
  if (!socket)
    ostra::details::throw_win32(static_cast<DWORD>(::WSAGetLastError()));
  return socket;
}

unique_address_list resolve(const tcp_address& address) {
  const std::wstring port = std::to_wstring(address.port);
  ADDRINFOW hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  ADDRINFOW* list = nullptr;
  if (const int error = ::GetAddrInfoW(address.host.c_str(), port.c_str(), &hints, &list))
    ostra::details::throw_win32(static_cast<DWORD>(error));
  return unique_address_list(list);
}

using name_function = int(WSAAPI*)(SOCKET, sockaddr*, int*);

// "127.0.0.1:4000", for this end or the other one; empty if unknown.
std::wstring name_of(const unique_socket& socket, name_function name) {
  sockaddr_storage storage = {};
  auto* const address = static_cast<sockaddr*>(static_cast<void*>(&storage));
  int size = sizeof storage;
  std::array<wchar_t, 64> text;
  auto length = static_cast<DWORD>(text.size());
  if (name(socket.get(), address, &size) != 0 ||
      ::WSAAddressToStringW(address, static_cast<DWORD>(size), nullptr, text.data(), &length) != 0)
    return {};
  return text.data();
}

DWORD error_of(int outcome) {
  return outcome == 0 ? ERROR_SUCCESS : static_cast<DWORD>(::WSAGetLastError());
}

struct receive_bytes {
  void* buffer;
  DWORD size;

  DWORD operator()(HANDLE handle, OVERLAPPED* overlapped) const noexcept {
    WSABUF target = {size, static_cast<char*>(buffer)};
    DWORD flags = 0;
    return error_of(::WSARecv(reinterpret_cast<SOCKET>(handle), &target, 1, nullptr, &flags,
                              overlapped, nullptr));
  }
};

struct send_bytes {
  const void* bytes;
  DWORD size;

  DWORD operator()(HANDLE handle, OVERLAPPED* overlapped) const noexcept {
    WSABUF source = {size, static_cast<char*>(const_cast<void*>(bytes))};
    return error_of(
        ::WSASend(reinterpret_cast<SOCKET>(handle), &source, 1, nullptr, 0, overlapped, nullptr));
  }
};

class tcp_stream final : public handle_stream<unique_socket, receive_bytes, send_bytes> {
 public:
  tcp_stream(std::shared_ptr<winsock> library, unique_socket socket)
      : handle_stream(std::move(socket)), library_(std::move(library)) {}

  void finish() noexcept override { ::shutdown(owner().get(), SD_SEND); }
  [[nodiscard]] std::wstring peer() const override { return name_of(owner(), &::getpeername); }

 private:
  const std::shared_ptr<winsock> library_;
};

// The provider's own function, obtained through the socket: the DLL that exports it by name is not
// one of those that Windows loads from its own folder alone.
LPFN_ACCEPTEX accept_function(const unique_socket& socket) {
  GUID id = WSAID_ACCEPTEX;
  LPFN_ACCEPTEX function = nullptr;
  DWORD size = 0;
  check_socket_call(::WSAIoctl(socket.get(), SIO_GET_EXTENSION_FUNCTION_POINTER, &id, sizeof id,
                               &function, sizeof function, &size, nullptr, nullptr));
  return function;
}

struct accept_connection {
  LPFN_ACCEPTEX accept;
  SOCKET client;
  std::array<std::byte, 2 * kAddressRoom> addresses;
  DWORD received = 0;

  DWORD operator()(HANDLE listener, OVERLAPPED* overlapped) noexcept {
    const auto socket = reinterpret_cast<SOCKET>(listener);
    return accept(socket, client, addresses.data(), 0, kAddressRoom, kAddressRoom, &received,
                  overlapped)
               ? ERROR_SUCCESS
               : static_cast<DWORD>(::WSAGetLastError());
  }
};

class tcp_listener final : public stream_listener {
 public:
  explicit tcp_listener(const tcp_address& address) {
    const auto list = resolve(address);
    family_ = list.get()->ai_family;
    unique_socket socket = make_socket(family_);
    const BOOL on = TRUE;
    set_option(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, &on, sizeof on);
    const auto size = static_cast<int>(list.get()->ai_addrlen);
    check_socket_call(::bind(socket.get(), list.get()->ai_addr, size));
    check_socket_call(::listen(socket.get(), SOMAXCONN));
    accept_ = accept_function(socket);
    socket_.set(std::move(socket));
  }

  ostra::future<std::shared_ptr<byte_stream>> accept() override {
    unique_socket client = make_socket(family_);
    accept_connection start{accept_, client.get(), {}, 0};
    auto call = socket_.call(std::ref(start));
    co_await call;
    const SOCKET listener = socket_.owner().get();
    set_option(client, SOL_SOCKET, SO_UPDATE_ACCEPT_CONTEXT, &listener, sizeof listener);
    const BOOL on = TRUE;
    set_option(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    keep_alive(client);
    std::shared_ptr<byte_stream> stream = std::make_shared<tcp_stream>(library_, std::move(client));
    co_return stream;
  }

  void cancel() noexcept override { socket_.cancel(); }
  [[nodiscard]] std::wstring address() const override {
    return name_of(socket_.owner(), &::getsockname);
  }

 private:
  const std::shared_ptr<winsock> library_ = std::make_shared<winsock>();
  // Constant after construction.
  int family_ = AF_INET;
  LPFN_ACCEPTEX accept_ = nullptr;
  ostra::overlapped_handle<unique_socket> socket_;
};

}  // namespace

tcp_address parse_tcp_address(std::wstring_view text) {
  const std::wstring_view address_text = text;
  tcp_address address;
  address.host = kLoopback;
  if (const auto colon = text.rfind(L':'); colon != std::wstring_view::npos) {
    auto host = text.substr(0, colon);
    if (host.starts_with(L'[') && host.ends_with(L']'))
      host = host.substr(1, host.size() - 2);
    if (host.empty())
      throw Tamrin::cmd_line_syntax_error("Invalid address specified.", address_text,
                                          L"[ADDRESS:]TCPPORT");
    address.host = host;
    text = text.substr(colon + 1);
  }
  address.port = static_cast<std::uint16_t>(Tamrin::parse_number(text, "TCP port", 0, 65535));
  return address;
}

bool is_loopback(const tcp_address& address) {
  return address.host.starts_with(L"127.") || address.host == L"::1" ||
         address.host == L"localhost";
}

std::unique_ptr<stream_listener> listen_tcp(const tcp_address& address) {
  try {
    return std::make_unique<tcp_listener>(address);
  } catch (const ostra::hresult_error& error) {
    throw explain(error.code(), tfmt::format(L"{0}:{1}", address.host, std::uint32_t{address.port}),
                  kTcpCauses, failure::local);
  }
}

}  // namespace tarnwheel::client
