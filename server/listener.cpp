#include "server/listener.h"

#include <chrono>
#include <exception>
#include <utility>

#include "async/errors.h"
#include "log/log.h"
#include "server/instance.h"

namespace tarnwheel {
namespace {

constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005);
constexpr HRESULT kPipeBusy = static_cast<HRESULT>(0x800700E7);
// The client connected and left before it was accepted.
constexpr HRESULT kClientLeft = static_cast<HRESULT>(0x800700E8);  // ERROR_NO_DATA

// In a burst of this many clients each finds an instance; further ones must retry until another has
// been created.
constexpr std::size_t kAcceptors = 4;

// Before a retry after a failure; the short one when an instance is already listening.
constexpr std::chrono::milliseconds kAcceptPause(250);
constexpr std::chrono::milliseconds kShortPause(20);

ostra::future<void> all_of(std::vector<ostra::future<void>> futures) {
  for (auto& each : futures)
    co_await each;
}

}  // namespace

listener::listener(tether::security_descriptor security, std::vector<std::uint32_t> shared_ports,
                   ostra::cancellation_source cancellation, std::shared_ptr<session_group> sessions)
    : security_(std::move(security)),
      shared_ports_(std::move(shared_ports)),
      cancellation_(std::move(cancellation)),
      token_(cancellation_.token()),
      sessions_(std::move(sessions)) {}

std::shared_ptr<tether::PipeTransport> listener::make_instance(bool is_first) const {
  auto transport = tether::PipeTransport::Create();
  transport->LinkCancellation(cancellation_);
  const PSECURITY_DESCRIPTOR security = security_.attributes().lpSecurityDescriptor;
  ostra::details::check_hresult(is_first ? transport->ListenFirst(tether::kServerPipe, security)
                                         : transport->Listen(tether::kServerPipe, security));
  return transport;
}

ostra::future<void> listener::start() {
  std::vector<next_endpoint> made(kAcceptors);
  make_first(made[0]);
  make_second(made[1]);
  logging::write(logging::debug, L"Network endpoint created successfully");
  std::vector<ostra::future<void>> acceptors;
  acceptors.reserve(kAcceptors);
  try {
    for (auto& next : made) {
      const auto& started = acceptors.emplace_back(accept(std::move(next)));
      // None ends before the cancellation, so this one has failed before its first wait.
      if (started.is_complete())
        started.get();
    }
    return all_of(acceptors);
  } catch (...) {
    cancellation_.cancel();
    sessions_->close();
    for (const auto& acceptor : acceptors)
      acceptor.wait();
    throw;
  }
}

void listener::make_first(next_endpoint& first) {
  try {
    first = endpoint{sessions_->try_take().value(), make_instance(true)};
  } catch (const ostra::hresult_error& error) {
    if (error.code() == kAccessDenied || error.code() == kPipeBusy) {
      logging::write(logging::error,
                     L"The server's pipe exists already: another program has made it, and would "
                     L"decide who may connect. End that program, then start the server again");
    }
    throw;
  }
}

void listener::make_second(next_endpoint& second) {
  try {
    auto pipe = make_instance(false);
    second = endpoint{sessions_->try_take().value(), std::move(pipe)};
  } catch (const ostra::hresult_error& error) {
    if (error.code() != kAccessDenied)
      throw;
    has_one_ = true;
    sessions_->limit_to(1);
    logging::write(logging::error,
                   L"The security descriptor does not let the server's own account create further "
                   L"instances of the pipe, so one client at a time is served. Grant that account "
                   L"the right 0x4, as \"(A;;0xc0100004;;;SU)\" does for a service");
  }
}

ostra::future<void> listener::accept(next_endpoint next) {
  const auto self = shared_from_this();
  // Created once: when the system is out of resources, it might fail to provide a new one.
  ostra::auto_cancel_timer pause(token_);
  // When only one instance is allowed, it may still be closing when its place is free.
  const unsigned failures_before_log = has_one_ ? 2 : 1;
  for (unsigned failures = 0; !token_.is_cancelled();) {
    HRESULT outcome = S_OK;
    try {
      if (failures != 0) {
        auto waited = pause.wait(next ? kShortPause : kAcceptPause);
        co_await waited;
      }
      auto step = accept_one(next);
      co_await step;
    } catch (...) {
      outcome = ostra::details::current_hresult();
    }
    failures = FAILED(outcome) && outcome != kClientLeft ? failures + 1 : 0;
    if (failures == failures_before_log && !token_.is_cancelled())
      logging::write(logging::error, L"Error accepting clients: {0ub016xp}", outcome);
  }
}

ostra::future<void> listener::accept_one(next_endpoint& next) {
  if (!next) {
    auto taking = take_place();
    auto place = co_await taking;
    next = endpoint{std::move(place), make_instance(has_one_)};
  }
  endpoint client = *std::exchange(next, std::nullopt);
  auto connected = client.pipe->WaitClient(false, nullptr);
  co_await connected;
  std::exception_ptr failure;
  try {
    if (auto place = sessions_->try_take())
      next = endpoint{*std::move(place), make_instance(false)};
  } catch (...) {
    failure = std::current_exception();  // must not cost the client that has connected
  }
  logging::write(logging::info, L"Client connected");
  instance::start(std::move(client.pipe), shared_ports_, std::move(client.place));
  if (failure)
    std::rethrow_exception(failure);
}

ostra::future<session_group::place> listener::take_place() {
  if (auto place = sessions_->try_take())
    co_return *std::move(place);
  auto taking = sessions_->take();
  if (++waiting_ == kAcceptors) {
    logging::write(logging::warning,
                   L"The server has all the clients that it can serve; others find its pipe busy "
                   L"until one leaves");
  }
  auto place = co_await taking;
  --waiting_;
  co_return place;
}

}  // namespace tarnwheel
