// The sending side of a connection: whole messages, one after another.
#pragma once

#include <memory>

#include "async/async_queue.h"
#include "async/future.h"
#include "rpc/itransport.h"
#include "rpc/request_load.h"

namespace tether {

// Sends messages in the order of their Send calls, with at most one write outstanding. A write that
// fails ends the sending permanently and cancels the transport, which ends the connection's reading
// too.
//
// A reply keeps its request in progress until it has been written, so the bounds of RequestLoad
// also cover the replies that wait here.
class Writer : public std::enable_shared_from_this<Writer> {
 public:
  // Writes the messages sent, and keeps this object alive, until the sending ends; called once. The
  // future then completes, never with an exception. Throws std::bad_alloc.
  ostra::future<void> Run(std::shared_ptr<ITransport> transport);

  // Any thread. Takes ownership of the message; discards it when the sending has ended. Throws
  // std::bad_alloc.
  void Send(std::shared_ptr<message_t> message, RequestLoad::Request request = {});

  // Ends the sending and discards the waiting messages. A write in progress ends by itself or when
  // the transport is cancelled.
  void Close() noexcept { queue_.close(); }

 private:
  struct entry {
    std::shared_ptr<message_t> message;
    RequestLoad::Request request;  // the request that the message answers, if any
  };

  ostra::async_queue<entry> queue_;
};

}  // namespace tether
