// The RPC connection over one transport: tells requests from replies, runs each request in a
// coroutine of its own and brings each reply to the call that waits for it.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "async/future.h"
#include "async/srw_lock.h"
#include "rpc/itransport.h"
#include "rpc/writer.h"

namespace tether {

// What the client half of a binding makes its calls through.
class IConnection {
 public:
  // Sends `request` under a new call identifier; completes with the reply. Any number of calls may
  // be under way. Fails with operation_cancelled when the connection ends first.
  virtual ostra::future<std::shared_ptr<Message>> Call(std::shared_ptr<message_t> request) = 0;

  // An empty request for the method, to append the arguments to.
  [[nodiscard]] virtual std::shared_ptr<message_t> NewRequest(std::uint16_t method) const = 0;

 protected:
  ~IConnection() = default;
};

// Lives until its last owner, the receive loop and every request in progress have let go of it:
// each of their coroutines holds it. The transport is given up when the receive loop ends, so a
// request whose device never answers keeps no pipe open.
class ConnectionBase : public IConnection, public std::enable_shared_from_this<ConnectionBase> {
 public:
  // `code` marks this end's own calls; the two ends have different codes.
  ConnectionBase(std::shared_ptr<ITransport> transport, std::uint16_t code);

  // The receive loop; to be called once. Completes, never with an exception, when the connection
  // has ended: the pipe broke, a message was beyond reason, or the transport was cancelled. By then
  // all calls of this end have failed and nothing more is sent.
  ostra::future<void> Run();

  // Ends the connection. Any thread.
  void Cancel() noexcept { cancellation_.cancel(); }

  // Null once the connection has ended.
  [[nodiscard]] std::shared_ptr<ITransport> Transport() const noexcept;

  // Requests of the peer that have not ended yet.
  [[nodiscard]] std::size_t RequestsInProgress() const noexcept;

  ostra::future<std::shared_ptr<Message>> Call(std::shared_ptr<message_t> request) final;
  [[nodiscard]] std::shared_ptr<message_t> NewRequest(std::uint16_t method) const final;

 protected:
  virtual ~ConnectionBase() = default;
  [[nodiscard]] Writer& writer() const noexcept { return *writer_; }

 private:
  // Runs one request and sends its reply; the message is the coroutine's to keep. What it throws
  // leaves the request without a reply.
  virtual ostra::future<void> Dispatch(std::shared_ptr<const Message> request) = 0;

  ostra::future<void> Receive(std::shared_ptr<ITransport> transport);
  ostra::future<void> Serve(std::shared_ptr<const Message> request);
  void Sort(std::shared_ptr<Message> message);
  void Complete(std::shared_ptr<Message> reply);
  void End() noexcept;

  // Constant after construction.
  const std::uint16_t code_;
  const std::shared_ptr<Writer> writer_;
  const ostra::cancellation_source cancellation_;  // the transport's

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::shared_ptr<ITransport> transport_;  // null once ended
  std::unordered_map<std::uint32_t, ostra::promise<std::shared_ptr<Message>>> calls_;
  std::uint32_t last_call_ = 0;
  std::size_t requests_in_progress_ = 0;
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
  ostra::future<void> Dispatch(std::shared_ptr<const Message> request) override {
    return server_.Dispatch(std::move(request));
  }

  ClientHalf client_;
  ServerHalf server_;
};

}  // namespace tether
