#include "rpc/connection.h"

#include <exception>
#include <mutex>
#include <utility>

#include "async/errors.h"

namespace tether {

ConnectionBase::ConnectionBase(std::shared_ptr<ITransport> transport, std::uint16_t code)
    : code_(code),
      writer_(std::make_shared<Writer>(transport)),
      cancellation_(transport->GetCancellation()),
      transport_(std::move(transport)) {}

std::shared_ptr<ITransport> ConnectionBase::Transport() const noexcept {
  const std::lock_guard guard(lock_);
  return transport_;
}

std::size_t ConnectionBase::RequestsInProgress() const noexcept {
  const std::lock_guard guard(lock_);
  return requests_in_progress_;
}

ostra::future<void> ConnectionBase::Run() {
  const auto self = shared_from_this();
  auto received = Receive(Transport());
  try {
    co_await received;
  } catch (...) {
    // However the reading ended, it ends the connection and nothing else.
  }
  End();
}

ostra::future<void> ConnectionBase::Receive(std::shared_ptr<ITransport> transport) {
  for (;;) {
    if (!writer_->has_room()) {
      auto room = writer_->room();
      co_await room;
    }
    auto read = transport->ReadMessage();
    auto message = co_await read;
    Sort(std::move(message));
  }
}

void ConnectionBase::Sort(std::shared_ptr<Message> message) {
  const std::uint16_t code = message->header().code;
  if (code == code_) {
    Complete(std::move(message));
  } else if (code != kNoConnection) {
    {
      const std::lock_guard guard(lock_);
      ++requests_in_progress_;
    }
    static_cast<void>(Serve(std::move(message)));
  }
}

ostra::future<void> ConnectionBase::Serve(std::shared_ptr<const Message> request) {
  const auto self = shared_from_this();
  std::exception_ptr failure;
  try {
    auto dispatched = Dispatch(std::move(request));
    co_await dispatched;
  } catch (...) {
    failure = std::current_exception();
  }
  {
    const std::lock_guard guard(lock_);
    --requests_in_progress_;
  }
  if (failure)
    std::rethrow_exception(failure);
}

ostra::future<std::shared_ptr<Message>> ConnectionBase::Call(std::shared_ptr<message_t> request) {
  ostra::promise<std::shared_ptr<Message>> promised;
  auto reply = promised.get_future();
  {
    const std::lock_guard guard(lock_);
    if (!transport_)
      return reply;  // the promise that goes unkept cancels it
    while (calls_.contains(++last_call_)) {
    }
    request->set_call(last_call_);
    calls_.emplace(last_call_, std::move(promised));
  }
  writer_->Send(std::move(request));
  return reply;
}

std::shared_ptr<message_t> ConnectionBase::NewRequest(std::uint16_t method) const {
  return std::make_shared<message_t>(message_header{0, code_, method, 0});
}

void ConnectionBase::Complete(std::shared_ptr<Message> reply) {
  decltype(calls_)::node_type call;
  {
    const std::lock_guard guard(lock_);
    call = calls_.extract(reply->header().call);
  }
  if (call)
    call.mapped().set_value(std::move(reply));
}

void ConnectionBase::End() noexcept {
  Cancel();
  writer_->Close();
  decltype(calls_) abandoned;
  std::shared_ptr<ITransport> transport;
  {
    const std::lock_guard guard(lock_);
    calls_.swap(abandoned);
    transport_.swap(transport);
  }
}

}  // namespace tether
