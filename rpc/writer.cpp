#include "rpc/writer.h"

#include <utility>

namespace tether {

void Writer::Send(std::shared_ptr<message_t> message, RequestLoad::Request request) {
  static_cast<void>(queue_.push({std::move(message), std::move(request)}));
}

ostra::future<void> Writer::Run(std::shared_ptr<ITransport> transport) {
  const auto self = shared_from_this();
  try {
    for (;;) {
      auto popped = queue_.pop();
      const auto next = co_await popped;
      if (!next)
        co_return;
      auto write = transport->WriteMessage(next->message);
      co_await write;
    }
  } catch (...) {
    // The peer has gone or the connection was cancelled; the reading side reports it.
    Close();
    transport->Cancel();
  }
}

}  // namespace tether
