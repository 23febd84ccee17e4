#include "server/discovery.h"

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "async/auto_reset_event.h"
#include "async/background.h"
#include "async/errors.h"
#include "async/timer.h"
#include "log/log.h"
#include "rpc/discovery_datagram.h"
#include "rpc/mailslot.h"
#include "rpc/security_descriptor.h"

namespace tarnwheel {
namespace {

using bytes = std::vector<std::byte>;

constexpr HRESULT kQueryTooLong = static_cast<HRESULT>(0x8007007A);  // ERROR_INSUFFICIENT_BUFFER

constexpr std::chrono::milliseconds kReadPause(250);  // before reading again after a failure
constexpr std::chrono::seconds kOpenLimit(30);        // for reaching the computer of one answer
constexpr std::chrono::seconds kAnswerLimit(1);       // for writing it

// A client's mailslot while it is being opened. Windows may take seconds to find out that a
// computer does not exist, and the call cannot be cancelled. So a coroutine that owns this object
// and nothing else makes the call, and its waiter may give up.
struct answer_target {
  explicit answer_target(const ostra::cancellation_token& token) : is_done(token) {}

  const std::shared_ptr<tether::Mailslot> mailslot = std::make_shared<tether::Mailslot>();
  HRESULT outcome = E_UNEXPECTED;  // written before is_done is set
  ostra::auto_reset_event is_done;
};

ostra::future<void> open(std::shared_ptr<answer_target> target, std::wstring computer) {
  try {
    ostra::resume_background background;
    co_await background;
    target->outcome = target->mailslot->Open(computer, tether::kAnswerMailslot);
  } catch (...) {
    target->outcome = ostra::details::current_hresult();
  }
  target->is_done.set();
}

// Cancels the write of an answer that the mailslot has no room for, unless `limit` is cancelled.
ostra::future<void> cancel_after(ostra::async_timer& limit,
                                 std::shared_ptr<tether::Mailslot> mailslot) {
  try {
    auto expiring = limit.wait(kAnswerLimit);
    co_await expiring;
  } catch (const ostra::timer_cancelled&) {
    co_return;
  }
  mailslot->Cancel();
}

// Lives in the frame of discover() and shares nothing with other coroutines.
class responder {
 public:
  explicit responder(ostra::cancellation_source cancellation);

  // Runs until it is cancelled.
  ostra::future<void> run() const;

 private:
  ostra::future<std::optional<bytes>> next_query() const;
  ostra::future<void> answer(bytes query) const;

  // Constant after construction.
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();
  const std::shared_ptr<tether::Mailslot> queries_ = std::make_shared<tether::Mailslot>();
  const bytes answer_ = tether::make_datagram(tether::computer_name());
};

responder::responder(ostra::cancellation_source cancellation)
    : cancellation_(std::move(cancellation)) {
  // Every client may write to it.
  const auto security = tether::security_descriptor::everyone(GENERIC_READ | GENERIC_WRITE);
  SECURITY_ATTRIBUTES attributes = security.attributes();
  queries_->LinkCancellation(cancellation_);
  ostra::details::check_hresult(queries_->Create(tether::kQueryMailslot, &attributes));
}

ostra::future<void> responder::run() const {
  // Queries that have already arrived must not delay the start of the server.
  ostra::resume_background background;
  co_await background;
  while (!token_.is_cancelled()) {
    HRESULT outcome = S_OK;
    try {
      auto reading = next_query();
      auto query = co_await reading;
      if (!query)
        continue;
      auto answering = answer(*std::move(query));
      co_await answering;
    } catch (...) {
      outcome = ostra::details::current_hresult();
    }
    if (FAILED(outcome) && !token_.is_cancelled())
      logging::write(logging::debug, L"Auto-discovery query is not answered: {0ub016xp}", outcome);
  }
}

// Gives nothing when the read failed. A failure that may persist is followed by a pause; a message
// that is too long is not, or its sender could hold up all other queries.
ostra::future<std::optional<bytes>> responder::next_query() const {
  HRESULT failure = S_OK;
  try {
    auto reading = queries_->Read();
    auto query = co_await reading;
    co_return query;
  } catch (...) {
    failure = ostra::details::current_hresult();
  }
  if (failure == kQueryTooLong || token_.is_cancelled())
    co_return std::nullopt;
  logging::write(logging::debug, L"Error reading auto-discovery queries: {0ub016xp}", failure);
  ostra::auto_cancel_timer timer(token_);
  auto pause = timer.wait(kReadPause);
  co_await pause;
  co_return std::nullopt;
}

ostra::future<void> responder::answer(bytes query) const {
  const std::wstring requester = tether::name_in(query);
  const bool same_machine = requester == tether::computer_name();
  const auto target = std::make_shared<answer_target>(token_);
  target->mailslot->LinkCancellation(cancellation_);
  static_cast<void>(open(target, same_machine ? L"." : requester));
  auto opening = target->is_done.wait_for(kOpenLimit);
  const bool is_done = co_await opening;
  if (!is_done)
    ostra::details::throw_win32(ERROR_TIMEOUT);
  ostra::details::check_hresult(target->outcome);
  const auto mailslot = target->mailslot;
  auto written = mailslot->Write(answer_);
  ostra::async_timer limit;
  auto expiry = cancel_after(limit, mailslot);
  std::exception_ptr failure;
  try {
    co_await written;
  } catch (...) {
    failure = std::current_exception();
  }
  limit.cancel();
  co_await expiry;
  if (failure)
    std::rethrow_exception(failure);
}

}  // namespace

ostra::future<void> discover(bool enabled, ostra::cancellation_source cancellation) {
  if (!enabled) {
    logging::write(logging::info, L"Auto-discovery is turned off");
    co_return;
  }
  logging::write(logging::info, L"Starting auto-discovery");
  const responder responder(std::move(cancellation));
  logging::write(logging::info, L"Auto-discovery has been started");
  auto answering = responder.run();
  co_await answering;
  logging::write(logging::info, L"Auto-discovery has been stopped");
}

}  // namespace tarnwheel
