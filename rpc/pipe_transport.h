// The transport over a Windows named pipe.
#pragma once

#include <memory>

#include "async/overlapped_file.h"
#include "rpc/itransport.h"

namespace tether {

// ConnectNamedPipe, for io_call. A client that connected before the call counts as success.
struct connect_pipe {
  DWORD operator()(HANDLE pipe, OVERLAPPED* overlapped) const noexcept {
    const DWORD error = ::ConnectNamedPipe(pipe, overlapped) ? ERROR_SUCCESS : ::GetLastError();
    return error == ERROR_PIPE_CONNECTED ? ERROR_SUCCESS : error;
  }
};

// Each operation's coroutine holds the transport, and the cancellation of a call affects that call
// only, so the handle and its binding are closed when no call uses them any more. Closing them is
// how a server drops a client without waiting for it: the client can still read what was written,
// and nothing is flushed.
//
// On the server end Disconnect() does flush, as its contract says. Only an owner that knows that
// the client is reading may call it; DisconnectNamedPipe from elsewhere ends its wait.
class PipeTransport final : public ITransport, public std::enable_shared_from_this<PipeTransport> {
 public:
  static std::shared_ptr<PipeTransport> Create() {
    return std::make_shared<PipeTransport>(create_key());
  }

  void LinkCancellation(const ostra::cancellation_source& owner) override { pipe_.link(owner); }
  ostra::cancellation_source& GetCancellation() override { return pipe_.cancellation(); }
  void Cancel() override { pipe_.cancel(); }
  void Disconnect() override;
  ostra::future<std::shared_ptr<const Message>> ReadMessage() override;
  ostra::future<void> WriteMessage(std::shared_ptr<message_t> message) override;
  HRESULT Listen(std::wstring_view pipe, PSECURITY_DESCRIPTOR security) override;
  ostra::future<std::uint32_t> WaitClient(bool flag, std::function<void()> listening) override;
  HRESULT Impersonate() override;
  HRESULT Revert() override;
  CToken GetClientToken(DWORD access, bool keep_impersonating, bool open_as_self) override;
  HRESULT Connect(std::wstring_view server, std::wstring_view pipe, DWORD timeout,
                  DWORD attempts) override;
  [[nodiscard]] bool PeerHasGone() const noexcept override;

  // Like Listen, but returns 0x80070005 when the pipe already exists. The creator of a pipe's first
  // instance sets the descriptor that guards all of its instances.
  HRESULT ListenFirst(std::wstring_view pipe, PSECURITY_DESCRIPTOR security);

 private:
  struct create_key {
    explicit create_key() = default;
  };

 public:
  explicit PipeTransport(create_key) {}

 private:
  HRESULT make_instance(std::wstring_view pipe, PSECURITY_DESCRIPTOR security, DWORD more_flags);
  void require_handle() const;
  ostra::future<DWORD> read_piece(std::span<std::byte> buffer);

  // Set by Listen or Connect, constant while operations run.
  ostra::overlapped_file pipe_;
  bool server_end_ = false;
};

}  // namespace tether
