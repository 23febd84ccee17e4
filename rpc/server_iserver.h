// The server half of the binding: takes requests apart and calls the implementation.
#pragma once

#include <memory>

#include "rpc/iserver_remote.h"
#include "rpc/message.h"
#include "rpc/request_load.h"
#include "rpc/writer.h"

namespace tether {

// Holds the implementation weakly, since that owns the connection that owns this; each request's
// coroutine holds it from its start to its end.
class Server_IServer {
 public:
  Server_IServer(std::weak_ptr<IServer_Remote> server, Writer& writer) noexcept;

  // The request's share of the bounds, whatever it is made of. Listing and opening ports, which block a thread,
  // are serial, and opening is a barrier: what a client sends behind it finds the port open.
  [[nodiscard]] static RequestCost CostOf(const Message& request) noexcept;

  // Calls the method that the request names and sends its result. A method number beyond the
  // interface calls nothing and gets no reply, nor does a request whose arguments are malformed
  // (kMalformedPayload) or whose method throws; their exception is the future's. `place` is given
  // up with the reply.
  ostra::future<void> Dispatch(std::shared_ptr<const Message> request,
                               RequestLoad::Request place) const;

 private:
  const std::weak_ptr<IServer_Remote> server_;
  const std::shared_ptr<Writer> writer_;
};

}  // namespace tether
