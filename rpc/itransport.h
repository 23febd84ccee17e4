// Carries messages between the two ends of a connection.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "async/cancellation.h"
#include "async/future.h"
#include "platform/win32.h"
#include "rpc/client_identity.h"
#include "rpc/message.h"

namespace tether {

// One end of one connection. Always owned through a shared pointer, and kept alive by each of its
// operations until that has ended. At most one ReadMessage and one WriteMessage may be outstanding
// at a time; they may run side by side. Cancel and PeerHasGone may be called at any time, the
// client's identity and token may be taken once something has been read, and everything else comes
// before the first operation or after the last one.
//
// Futures fail with hresult_error (0x8007006D when the other end has gone, 0x800703E3 when
// cancelled while pending) or operation_cancelled (when cancelled before the start).
class ITransport {
 public:
  // Gives the transport a new cancellation source of its own, which `owner` cancels too.
  virtual void LinkCancellation(const ostra::cancellation_source& owner) = 0;
  virtual ostra::cancellation_source& GetCancellation() = 0;

  // Cancels every pending operation and refuses later ones. Any thread.
  virtual void Cancel() = 0;

  // Server end: waits until the client has read everything, then disconnects it; the transport may
  // then listen again. Client end: closes the connection. On the server end, a client that stays
  // connected without reading blocks the call indefinitely.
  virtual void Disconnect() = 0;

  // Fails with kMessageTooLong for a message longer than kMaxPayload, after which the transport is
  // unusable.
  virtual ostra::future<std::shared_ptr<const Message>> ReadMessage() = 0;

  // Sends the whole message, which must no longer change.
  virtual ostra::future<void> WriteMessage(std::shared_ptr<message_t> message) = 0;

  // Server end: creates an instance of the pipe with `security`, or with the default descriptor
  // when that is null. Returns 0 or the HRESULT of the failure. Throws hresult_error when the new
  // pipe cannot be bound to the thread pool.
  virtual HRESULT Listen(std::wstring_view pipe, PSECURITY_DESCRIPTOR security) = 0;

  // Completes with 0 when a client has connected to the listening pipe. `listening`, if any, is
  // called when the wait has begun and no client is connected yet; it must not throw. The flag has
  // no meaning for a pipe.
  virtual ostra::future<std::uint32_t> WaitClient(bool flag, std::function<void()> listening) = 0;

  // Server end, once something has been read: impersonates the client on the calling thread, and
  // reverts. Both return 0 or the HRESULT of the failure. Nothing may suspend in between.
  virtual HRESULT Impersonate() = 0;
  virtual HRESULT Revert() = 0;

  // The client's token with `access`; empty when it is unavailable. If the client was impersonated
  // but its token could not be opened, the thread is left impersonating: call Revert() then.
  virtual CToken GetClientToken(DWORD access, bool keep_impersonating, bool open_as_self) = 0;

  // Client end: connects to `pipe` on `server` ("." is this machine) in at most `attempts` tries,
  // each waiting up to `timeout` milliseconds for a pipe that does not exist yet. Blocks. Returns 0
  // or the HRESULT of the failure, 0x800705B4 when the attempts are used up; throws hresult_error
  // when the opened pipe cannot be used.
  virtual HRESULT Connect(std::wstring_view server, std::wstring_view pipe, DWORD timeout,
                          DWORD attempts) = 0;

  // True once the other end has closed, even while data from it is still unread. Any thread.
  [[nodiscard]] virtual bool PeerHasGone() const noexcept = 0;

  virtual ~ITransport() = default;
};

}  // namespace tether
