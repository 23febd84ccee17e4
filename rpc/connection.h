// The RPC connection over one transport: tells requests from replies, runs each request in a
// coroutine of its own and brings each reply to the call that waits for it.
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

// The client half of a binding makes its calls through this.
class IConnection {
 public:
  // Sends `request` under a new call identifier; completes with the reply. Any number of calls may
  // be under way. Fails with operation_cancelled when the connection ends first.
  virtual ostra::future<std::shared_ptr<const Message>> Call(
      std::shared_ptr<message_t> request) = 0;

  // An empty request for the method, to append the arguments to.
  [[nodiscard]] virtual std::shared_ptr<message_t> NewRequest(std::uint16_t method) const = 0;

 protected:
  ~IConnection() = default;
};

// Lives until its last owner and the receive loop have let go of it. A request in progress needs
// only its implementation, the Writer and its place in the RequestLoad, each of which its coroutine
// holds. The transport is given up when the receive loop ends, so a request whose device never
// answers keeps no pipe open.
//
// The receive loop stops reading while the requests in progress are at their bounds. It would not
// see the peer go then, so it asks for that once a second.
class ConnectionBase : public IConnection, public std::enable_shared_from_this<ConnectionBase> {
 public:
  // `code` marks this end's own calls; the two ends have different codes.
  ConnectionBase(std::shared_ptr<ITransport> transport, std::uint16_t code);

  // The receive loop; to be called once. Completes, never with an exception, when the connection
  // has ended, with the HRESULT that says why: the pipe broke, the transport was cancelled, a
  // message was too long (kMessageTooLong). By then all calls of this end have failed and nothing
  // more is sent.
  ostra::future<HRESULT> Run();

  // Ends the connection. Any thread.
  void Cancel() noexcept { cancellation_.cancel(); }

  // As Cancel(), and all calls of this end fail now, inside this call, without waiting for the
  // transport: one over a network that has gone may take minutes to give up its read.
  void End() noexcept;

  // Null once the connection has ended.
  [[nodiscard]] std::shared_ptr<ITransport> Transport() const noexcept;

  // Requests of the peer whose replies have not been written yet.
  [[nodiscard]] std::size_t RequestsInProgress() const noexcept { return load_->count(); }

  ostra::future<std::shared_ptr<const Message>> Call(std::shared_ptr<message_t> request) final;
  [[nodiscard]] std::shared_ptr<message_t> NewRequest(std::uint16_t method) const final;

 protected:
  virtual ~ConnectionBase() = default;
  [[nodiscard]] Writer& writer() const noexcept { return *writer_; }

 private:
  // The request's share of the bounds while it is in progress.
  [[nodiscard]] virtual RequestCost CostOf(const Message& request) const noexcept = 0;

  // Runs one request and sends its reply; the message is the coroutine's to keep, and so is its
  // place among the requests in progress. What it throws leaves the request without a reply.
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
// unmarshals the peer's requests. ServerHalf may have no implementation to call: then the peer's
// requests stay without a reply.
template <class ClientHalf, class ServerHalf>
class Connection final : public ConnectionBase {
 public:
  template <class Implementation>
  Connection(std::shared_ptr<ITransport> transport, std::uint16_t code,
             std::weak_ptr<Implementation> implementation)
      : ConnectionBase(std::move(transport), code),
        client_(*this),
        server_(std::move(implementation), writer()) {}

  // The peer's methods. Usable while this connection is kept.
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
