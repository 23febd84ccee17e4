// The server half of the binding: takes requests apart and calls the implementation.
#pragma once

#include <memory>

#include "rpc/iserver_remote.h"
#include "rpc/message.h"
#include "rpc/writer.h"

namespace tether {

// Holds the implementation weakly, since that owns the connection that owns this; each request's
// coroutine holds it from its start to its end.
class Server_IServer {
 public:
  Server_IServer(std::weak_ptr<IServer_Remote> server, Writer& writer) noexcept;

  // Calls the method that the request names and sends its result. A method number beyond the
  // interface calls nothing and gets no reply, nor does a request whose arguments are malformed
  // (kMalformedPayload) or whose method throws; their exception is the future's.
  ostra::future<void> Dispatch(std::shared_ptr<const Message> request) const;

 private:
  const std::weak_ptr<IServer_Remote> server_;
  const std::shared_ptr<Writer> writer_;
};

}  // namespace tether
