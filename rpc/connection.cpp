#include "rpc/connection.h"

#include <chrono>
#include <mutex>
#include <utility>

#include "async/background.h"
#include "async/errors.h"

namespace tether {
namespace {

constexpr std::chrono::seconds kPeerCheckInterval(1);

// After this many messages the receive loop goes to the end of the thread pool's queue. Reads from a
// pipe that is kept full succeed at once, so the loop might never leave its thread otherwise.
constexpr unsigned kMessagesPerTurn = 256;

}  // namespace

ConnectionBase::ConnectionBase(std::shared_ptr<ITransport> transport, std::uint16_t code)
    : code_(code),
      writer_(std::make_shared<Writer>()),
      cancellation_(transport->GetCancellation()),
      load_(std::make_shared<RequestLoad>(cancellation_)),
      transport_(std::move(transport)) {}

std::shared_ptr<ITransport> ConnectionBase::Transport() const noexcept {
  const std::lock_guard guard(lock_);
  return transport_;
}

ostra::future<HRESULT> ConnectionBase::Run() {
  const auto self = shared_from_this();
  HRESULT outcome = S_OK;
  try {
    const auto transport = Transport();
    static_cast<void>(writer_->Run(transport));
    auto received = Receive(transport);
    co_await received;
  } catch (...) {
    outcome = ostra::details::current_hresult();  // a failure ends this connection and nothing else
  }
  End();
  co_return outcome;
}

ostra::future<void> ConnectionBase::Receive(std::shared_ptr<ITransport> transport) {
  for (unsigned messages = 1;; ++messages) {
    if (messages % kMessagesPerTurn == 0) {
      ostra::try_resume_background next_turn;
      co_await next_turn;
    }
    if (!load_->Admits({})) {
      auto room = WaitUntilAdmitted({}, transport);
      co_await room;
    }
    auto read = transport->ReadMessage();
    auto message = co_await read;
    const std::uint16_t code = message->header().code;
    if (code == code_) {
      Complete(std::move(message));
      continue;
    }
    if (code == kNoConnection)
      continue;
    const RequestCost cost = CostOf(*message);
    if (!load_->Admits(cost)) {
      auto turn = WaitUntilAdmitted(cost, transport);
      co_await turn;
    }
    static_cast<void>(Dispatch(std::move(message), load_->Begin(cost)));
  }
}

ostra::future<void> ConnectionBase::WaitUntilAdmitted(RequestCost cost,
                                                      std::shared_ptr<ITransport> transport) {
  for (bool admitted = false; !admitted;) {
    auto change = load_->WaitFor(cost, kPeerCheckInterval);
    admitted = co_await change;
    if (!admitted && transport->PeerHasGone())
      ostra::details::throw_win32(ERROR_BROKEN_PIPE);
  }
}

ostra::future<std::shared_ptr<const Message>> ConnectionBase::Call(
    std::shared_ptr<message_t> request) {
  ostra::promise<std::shared_ptr<const Message>> promised;
  auto reply = promised.get_future();
  {
    const std::lock_guard guard(lock_);
    if (!transport_)
      return reply;  // destroying the promise cancels the call
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

void ConnectionBase::Complete(std::shared_ptr<const Message> reply) {
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
