#include "server/listener.h"

#include <chrono>
#include <exception>
#include <new>
#include <utility>

#include "async/errors.h"
#include "log/log.h"
#include "server/instance.h"

namespace tarnwheel {
namespace {

// The client came and went before it was accepted.
constexpr HRESULT kClientLeft = static_cast<HRESULT>(0x800700E8);  // ERROR_NO_DATA

// A burst of as many clients finds an instance each; more have to try again within the time that it
// takes to make another.
constexpr std::size_t kAcceptors = 4;

// Before trying again after a failure; a client can connect to an instance that listens.
constexpr std::chrono::milliseconds kPause(250);
constexpr std::chrono::milliseconds kShortPause(20);

}  // namespace

listener::listener(tether::security_descriptor security, std::vector<std::uint32_t> shared_ports,
                   ostra::cancellation_source cancellation, std::shared_ptr<session_group> sessions)
    : security_(std::move(security)),
      shared_ports_(std::move(shared_ports)),
      cancellation_(std::move(cancellation)),
      token_(cancellation_.token()),
      sessions_(std::move(sessions)) {}

listener::pipe_instance listener::make_instance() const {
  auto transport = tether::PipeTransport::Create();
  transport->LinkCancellation(cancellation_);
  ostra::details::check_hresult(
      transport->Listen(tether::kServerPipe, security_.attributes().lpSecurityDescriptor));
  return transport;
}

ostra::future<void> listener::start() {
  std::vector<std::unique_ptr<ostra::auto_cancel_timer>> pauses;
  while (pauses.size() < kAcceptors)
    pauses.push_back(std::make_unique<ostra::auto_cancel_timer>(token_));
  auto first = make_instance();
  logging::write(logging::debug, L"Network endpoint created successfully");
  return run(std::move(first), std::move(pauses));
}

ostra::future<void> listener::run(
    pipe_instance first, std::vector<std::unique_ptr<ostra::auto_cancel_timer>> pauses) const {
  const auto self = shared_from_this();
  std::vector<ostra::future<void>> acceptors;
  for (const auto& pause : pauses)
    acceptors.push_back(accept(std::exchange(first, nullptr), *pause));
  for (auto& acceptor : acceptors) {
    co_await acceptor;
  }
}

ostra::future<void> listener::accept(pipe_instance listening,
                                     ostra::auto_cancel_timer& pause) const {
  bool after_failure = false;
  while (!token_.is_cancelled()) {
    HRESULT outcome = S_OK;
    try {
      if (after_failure) {
        auto waited = pause.wait(listening ? kShortPause : kPause);
        co_await waited;
      }
      auto step = accept_one(listening);
      co_await step;
    } catch (const ostra::hresult_error& error) {
      outcome = error.code();
    } catch (const std::bad_alloc&) {
      outcome = E_OUTOFMEMORY;
    }
    const bool failed = FAILED(outcome) && outcome != kClientLeft;
    if (failed && !after_failure && !token_.is_cancelled()) {
      logging::write(logging::error, L"Error accepting clients: {0ub016xp}", outcome);
    }
    after_failure = failed;
  }
}

ostra::future<void> listener::accept_one(pipe_instance& listening) const {
  auto client = listening ? std::exchange(listening, nullptr) : make_instance();
  auto connected = client->WaitClient(false, nullptr);
  co_await connected;
  std::exception_ptr failure;
  try {
    listening = make_instance();
  } catch (...) {
    failure = std::current_exception();  // which must not cost the client that is here
  }
  logging::write(logging::info, L"Client connected");
  instance::start(std::move(client), shared_ports_, sessions_->join());
  if (failure)
    std::rethrow_exception(failure);
}

}  // namespace tarnwheel
