#include "rpc/pipe_transport.h"

#include <algorithm>
#include <string>

#include "async/errors.h"
#include "rpc/pipe_state.h"

namespace tether {
namespace {

constexpr DWORD kPipeBuffer = 0x400000;  // bytes, in each direction

struct connect_pipe {
  const std::function<void()>* listening;

  DWORD operator()(HANDLE pipe, OVERLAPPED* overlapped) const noexcept {
    const DWORD error = ::ConnectNamedPipe(pipe, overlapped) ? ERROR_SUCCESS : ::GetLastError();
    if (error == ERROR_PIPE_CONNECTED)
      return ERROR_SUCCESS;  // came before the call
    if (error == ERROR_IO_PENDING && *listening)
      (*listening)();
    return error;
  }
};

HRESULT result_of(BOOL succeeded) noexcept {
  return succeeded ? S_OK : ostra::details::last_hresult();
}

}  // namespace

void PipeTransport::LinkCancellation(const ostra::cancellation_source& owner) {
  cancellation_ = ostra::cancellation_source();
  token_ = cancellation_.token();
  owner.link(cancellation_);
  // An owner that was cancelled before the link does not reach what is linked later.
  if (owner.is_cancelled())
    cancellation_.cancel();
}

void PipeTransport::bind() {
  binding_.bind(pipe_.get(), ostra::immediate_success::continues_inline);
}

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
  pipe_.reset(
      ::CreateNamedPipeW(name.c_str(), FILE_FLAG_OVERLAPPED | PIPE_ACCESS_DUPLEX | more_flags,
                         PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                         kPipeBuffer, kPipeBuffer, 0, &attributes));
  if (!pipe_)
    return ostra::details::last_hresult();
  bind();
  server_end_ = true;
  return S_OK;
}

ostra::future<std::uint32_t> PipeTransport::WaitClient(bool, std::function<void()> listening) {
  const auto self = shared_from_this();
  token_.throw_if_cancelled();
  require_handle();
  ostra::io_call connection(binding_, connect_pipe{&listening}, token_);
  co_await connection;
  co_return 0;
}

HRESULT PipeTransport::Connect(std::wstring_view server, std::wstring_view pipe, DWORD timeout,
                               DWORD attempts) {
  const std::wstring name = LR"(\\)" + std::wstring(server) + LR"(\pipe\)" + std::wstring(pipe);
  pipe_.reset();
  for (DWORD attempt = 0; attempt < attempts && !pipe_; ++attempt) {
    pipe_.reset(::CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OVERLAPPED, nullptr));
    if (pipe_)
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
  if (!pipe_)
    return ostra::details::to_hresult(ERROR_TIMEOUT);
  DWORD mode = PIPE_READMODE_BYTE | PIPE_WAIT;
  if (!::SetNamedPipeHandleState(pipe_.get(), &mode, nullptr, nullptr)) {
    const DWORD error = ::GetLastError();
    pipe_.reset();
    ostra::details::throw_win32(error);
  }
  server_end_ = false;
  bind();
  return S_OK;
}

void PipeTransport::Disconnect() {
  if (!pipe_)
    return;
  if (server_end_) {
    ::FlushFileBuffers(pipe_.get());
    ::DisconnectNamedPipe(pipe_.get());
  } else {
    pipe_.reset();
  }
}

ostra::future<DWORD> PipeTransport::read_piece(std::span<std::byte> buffer) {
  const auto size = static_cast<DWORD>(buffer.size());
  ostra::io_call read(binding_, ostra::read_file{buffer.data(), size}, token_);
  const DWORD arrived = co_await read;
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
    ostra::io_call write(binding_, ostra::write_file{rest.data(), piece}, token_);
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
