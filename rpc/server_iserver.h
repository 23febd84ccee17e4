// The server half of the binding: unmarshals requests and calls the implementation.
#pragma once

#include <memory>

#include "rpc/iserver_remote.h"
#include "rpc/message.h"
#include "rpc/request_load.h"
#include "rpc/writer.h"

namespace tether {

// Holds the implementation weakly, since the implementation owns the connection that owns this
// object. Each request's coroutine holds the implementation while it runs.
class Server_IServer {
 public:
  Server_IServer(std::weak_ptr<IServer_Remote> server, Writer& writer) noexcept;

  // The request's share of the bounds, even if it is malformed. Listing and opening ports block a
  // thread, so they are serial. Opening is also a barrier: requests sent after it find the port
  // open.
  [[nodiscard]] static RequestCost CostOf(const Message& request) noexcept;

  // Calls the method that the request names and sends its result. There is no reply for a method
  // number beyond the interface, nor for malformed arguments (kMalformedPayload) or a method that
  // throws; in the last two cases the future holds the exception. `place` is passed on with the
  // reply.
  ostra::future<void> Dispatch(std::shared_ptr<const Message> request,
                               RequestLoad::Request place) const;

 private:
  const std::weak_ptr<IServer_Remote> server_;
  const std::shared_ptr<Writer> writer_;
};

}  // namespace tether
