// The RPC connection over one transport: distinguishes requests from replies, runs each request in
// a coroutine of its own and delivers each reply to the call that waits for it.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "async/future.h"
#include "async/srw_lock.h"
#include "rpc/itransport.h"
#include "rpc/request_load.h"
#include "rpc/writer.h"

namespace tether {

// The interface through which the client half of a binding makes its calls.
class IConnection {
 public:
  // Sends `request` under a new call identifier; completes with the reply. Any number of calls may
  // be in flight. Fails with operation_cancelled when the connection ends first.
  virtual ostra::future<std::shared_ptr<const Message>> Call(
      std::shared_ptr<message_t> request) = 0;

  // An empty request for the method, to which the arguments are appended.
  [[nodiscard]] virtual std::shared_ptr<message_t> NewRequest(std::uint16_t method) const = 0;

 protected:
  ~IConnection() = default;
};

// Lives until its last owner and the receive loop have released it. A request in progress needs
// only the implementation, the Writer and its place in the RequestLoad, all of which its coroutine
// holds. The transport is released when the receive loop ends, so a request whose device never
// answers keeps no pipe open.
//
// The receive loop stops reading while the requests in progress are at their bounds. Since it would
// not notice then that the peer has gone, it checks for that once a second.
class ConnectionBase : public IConnection, public std::enable_shared_from_this<ConnectionBase> {
 public:
  // `code` identifies this end's own calls; the two ends have different codes.
  ConnectionBase(std::shared_ptr<ITransport> transport, std::uint16_t code);

  // The receive loop; called once. Completes when the connection has ended, never with an
  // exception, and yields the HRESULT of the reason: the pipe broke, the transport was cancelled,
  // or a message was too long (kMessageTooLong). By then all calls of this end have failed and
  // nothing more is sent.
  ostra::future<HRESULT> Run();

  // Ends the connection. Any thread.
  void Cancel() noexcept { cancellation_.cancel(); }

  // Like Cancel(), but also fails all calls of this end before it returns, without waiting for the
  // transport: over a network that has gone, a pending read may take minutes to fail.
  void End() noexcept;

  // Null once the connection has ended.
  [[nodiscard]] std::shared_ptr<ITransport> Transport() const noexcept;

  // The number of the peer's requests whose replies have not been written yet.
  [[nodiscard]] std::size_t RequestsInProgress() const noexcept { return load_->count(); }

  ostra::future<std::shared_ptr<const Message>> Call(std::shared_ptr<message_t> request) final;
  [[nodiscard]] std::shared_ptr<message_t> NewRequest(std::uint16_t method) const final;

 protected:
  virtual ~ConnectionBase() = default;
  [[nodiscard]] Writer& writer() const noexcept { return *writer_; }

 private:
  // The request's share of the bounds while it is in progress.
  [[nodiscard]] virtual RequestCost CostOf(const Message& request) const noexcept = 0;

  // Runs one request and sends its reply. The coroutine owns the message and its place among the
  // requests in progress. An exception leaves the request without a reply.
  virtual ostra::future<void> Dispatch(std::shared_ptr<const Message> request,
                                       RequestLoad::Request place) = 0;

  ostra::future<void> Receive(std::shared_ptr<ITransport> transport);
  ostra::future<void> WaitUntilAdmitted(RequestCost cost, std::shared_ptr<ITransport> transport);
  void Complete(std::shared_ptr<const Message> reply);

  // Constant after construction.
  const std::uint16_t code_;
  const std::shared_ptr<Writer> writer_;
  const ostra::cancellation_source cancellation_;  // the transport's
  const std::shared_ptr<RequestLoad> load_;

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::shared_ptr<ITransport> transport_;  // null once ended
  std::unordered_map<std::uint32_t, ostra::promise<std::shared_ptr<const Message>>> calls_;
  std::uint32_t last_call_ = 0;
};

// A connection with both halves of a binding: ClientHalf marshals the calls of this end, ServerHalf
// unmarshals the peer's requests. Without an implementation for ServerHalf to call, the peer's
// requests get no reply.
template <class ClientHalf, class ServerHalf>
class Connection final : public ConnectionBase {
 public:
  template <class Implementation>
  Connection(std::shared_ptr<ITransport> transport, std::uint16_t code,
             std::weak_ptr<Implementation> implementation)
      : ConnectionBase(std::move(transport), code),
        client_(*this),
        server_(std::move(implementation), writer()) {}

  // The peer's methods. Valid for the lifetime of this connection.
  [[nodiscard]] ClientHalf& Remote() noexcept { return client_; }

 private:
  [[nodiscard]] RequestCost CostOf(const Message& request) const noexcept override {
    return ServerHalf::CostOf(request);
  }
  ostra::future<void> Dispatch(std::shared_ptr<const Message> request,
                               RequestLoad::Request place) override {
    return server_.Dispatch(std::move(request), std::move(place));
  }

  ClientHalf client_;
  ServerHalf server_;
};

}  // namespace tether
