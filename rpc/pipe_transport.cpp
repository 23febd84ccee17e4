#include "rpc/pipe_transport.h"

#include <algorithm>
#include <string>
#include <utility>

#include "async/errors.h"
#include "rpc/pipe_state.h"

namespace tether {
namespace {

constexpr DWORD kPipeBuffer = 0x400000;  // bytes, in each direction

// connect_pipe that reports when the instance is ready for a client.
struct listen_for_client {
  const std::function<void()>* listening;

  DWORD operator()(HANDLE pipe, OVERLAPPED* overlapped) const noexcept {
    const DWORD error = connect_pipe()(pipe, overlapped);
    if (error == ERROR_IO_PENDING && *listening)
      (*listening)();
    return error;
  }
};

HRESULT result_of(BOOL succeeded) noexcept {
  return succeeded ? S_OK : ostra::details::last_hresult();
}

}  // namespace

void PipeTransport::require_handle() const {
  if (!pipe_)
    throw ostra::hresult_error(E_FAIL);
}

HRESULT PipeTransport::Listen(std::wstring_view pipe, PSECURITY_DESCRIPTOR security) {
  return make_instance(pipe, security, 0);
}

HRESULT PipeTransport::ListenFirst(std::wstring_view pipe, PSECURITY_DESCRIPTOR security) {
  return make_instance(pipe, security, FILE_FLAG_FIRST_PIPE_INSTANCE);
}

HRESULT PipeTransport::make_instance(std::wstring_view pipe, PSECURITY_DESCRIPTOR security,
                                     DWORD more_flags) {
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, security, FALSE};
  const std::wstring name = LR"(\\.\pipe\)" + std::wstring(pipe);
  Tamrin::unique_file made(
      ::CreateNamedPipeW(name.c_str(), FILE_FLAG_OVERLAPPED | PIPE_ACCESS_DUPLEX | more_flags,
                         PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                         kPipeBuffer, kPipeBuffer, 0, &attributes));
  if (!made)
    return ostra::details::last_hresult();
  pipe_.set(std::move(made));
  server_end_ = true;
  return S_OK;
}

ostra::future<std::uint32_t> PipeTransport::WaitClient(bool, std::function<void()> listening) {
  const auto self = shared_from_this();
  pipe_.token().throw_if_cancelled();
  require_handle();
  auto connection = pipe_.call(listen_for_client{&listening});
  co_await connection;
  co_return 0;
}

HRESULT PipeTransport::Connect(std::wstring_view server, std::wstring_view pipe, DWORD timeout,
                               DWORD attempts) {
  const std::wstring name = LR"(\\)" + std::wstring(server) + LR"(\pipe\)" + std::wstring(pipe);
  pipe_.close();
  Tamrin::unique_file opened;
  for (DWORD attempt = 0; attempt < attempts && !opened; ++attempt) {
    opened.reset(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr));
    if (opened)
      break;
    const DWORD error = ::GetLastError();
    if (error != ERROR_FILE_NOT_FOUND)
      return ostra::details::to_hresult(error);
    if (::WaitNamedPipeW(name.c_str(), timeout))
      continue;
    const DWORD wait_error = ::GetLastError();
    if (wait_error != ERROR_SEM_TIMEOUT)
      return ostra::details::to_hresult(wait_error);
  }
  if (!opened)
    return ostra::details::to_hresult(ERROR_TIMEOUT);
  DWORD mode = PIPE_READMODE_BYTE | PIPE_WAIT;
  ostra::details::check_bool(::SetNamedPipeHandleState(opened.get(), &mode, nullptr, nullptr));
  pipe_.set(std::move(opened));
  server_end_ = false;
  return S_OK;
}

void PipeTransport::Disconnect() {
  if (!pipe_)
    return;
  if (server_end_) {
    ::FlushFileBuffers(pipe_.get());
    ::DisconnectNamedPipe(pipe_.get());
  } else {
    pipe_.close();
  }
}

// A read without bytes is an empty write by the peer, which our peers never make, or a completion
// that has lost its data. Continuing would put the stream out of step.
ostra::future<DWORD> PipeTransport::read_piece(std::span<std::byte> buffer) {
  const auto size = static_cast<DWORD>(buffer.size());
  auto read = pipe_.call(ostra::read_file{buffer.data(), size});
  const DWORD arrived = co_await read;
  if (arrived == 0)
    ostra::details::throw_win32(ERROR_BROKEN_PIPE);
  co_return arrived;
}

ostra::future<std::shared_ptr<const Message>> PipeTransport::ReadMessage() {
  const auto self = shared_from_this();
  require_handle();
  message_header header;
  for (auto rest = std::as_writable_bytes(std::span(&header, 1)); !rest.empty();) {
    auto read = read_piece(rest);
    const DWORD arrived = co_await read;
    rest = rest.subspan(arrived);
  }
  MessageReceiver message(header);
  while (!message.is_complete()) {
    auto read = read_piece(message.room());
    const DWORD arrived = co_await read;
    message.advance(arrived);
  }
  co_return message.take();
}

ostra::future<void> PipeTransport::WriteMessage(std::shared_ptr<message_t> message) {
  const auto self = shared_from_this();
  require_handle();
  for (auto rest = message->bytes(); !rest.empty();) {
    const auto piece = static_cast<DWORD>(std::min<std::size_t>(rest.size(), kPiece));
    auto write = pipe_.call(ostra::write_file{rest.data(), piece});
    co_await write;
    rest = rest.subspan(piece);
  }
}

bool PipeTransport::PeerHasGone() const noexcept {
  return pipe_peer_has_gone(pipe_.get());
}

HRESULT PipeTransport::Impersonate() {
  return result_of(::ImpersonateNamedPipeClient(pipe_.get()));
}

HRESULT PipeTransport::Revert() {
  return result_of(::RevertToSelf());
}

CToken PipeTransport::GetClientToken(DWORD access, bool keep_impersonating, bool open_as_self) {
  return open_client_token(pipe_.get(), access, keep_impersonating, open_as_self);
}

}  // namespace tether
