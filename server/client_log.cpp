#include "server/client_log.h"

#include <mutex>
#include <new>
#include <utility>

#include "async/background.h"

namespace tarnwheel {

void client_log::identify(tether::ITransport& transport,
                          std::shared_ptr<const void> place) noexcept {
  if (!logging::is_kept(logging::info))
    return;
  {
    const std::lock_guard guard(lock_);
    if (std::exchange(state_, state_ == state::unasked ? state::asked : state_) != state::unasked)
      return;
  }
  try {
    tether::CToken token = transport.GetClientToken(TOKEN_QUERY, false, false);
    // Without a token, the thread may still be impersonating the client.
    if (!token)
      tether::revert_to_self();
    static_cast<void>(look_up(shared_from_this(), std::move(token), std::move(place)));
  } catch (...) {
    answer({});  // no memory for the look-up
  }
}

ostra::future<void> client_log::look_up(std::shared_ptr<client_log> self, tether::CToken token,
                                        [[maybe_unused]] std::shared_ptr<const void> place) {
  std::wstring name;
  try {
    ostra::resume_background elsewhere;
    co_await elsewhere;
    name = tether::account_name(token).value_or(std::wstring());
  } catch (...) {
    // The client remains "Unknown".
  }
  self->answer(std::move(name));
}

void client_log::answer(std::wstring name) noexcept {
  ostra::auto_reset_event* awaited = nullptr;
  {
    const std::lock_guard guard(lock_);
    if (!name.empty())
      name_ = std::move(name);
    state_ = state::answered;
    log_waiting();
    if (answered_)
      awaited = &*answered_;
  }
  if (awaited != nullptr)
    awaited->set();
}

void client_log::write(logging::level level, std::wstring_view pattern, std::uint32_t number,
                       HRESULT code) noexcept {
  if (!logging::is_kept(level))
    return;
  const line next{level, pattern, number, code};
  const std::lock_guard guard(lock_);
  if (state_ != state::asked || !wait_for_name(next))
    log(next);
}

bool client_log::is_looking_up() noexcept {
  const std::lock_guard guard(lock_);
  return state_ == state::asked;
}

// False when the line cannot wait; the lines that were waiting have then been logged.
bool client_log::wait_for_name(const line& next) {
  try {
    if (waiting_.size() < kMaxWaiting) {
      waiting_.push_back(next);
      return true;
    }
  } catch (const std::bad_alloc&) {
  }
  log_waiting();
  return false;
}

void client_log::log(const line& next) const noexcept {
  logging::write(next.level, next.pattern, name_, next.number, next.code);
}

void client_log::log_waiting() noexcept {
  for (const line& next : waiting_)
    log(next);
  waiting_.clear();
}

ostra::future<void> client_log::settle(ostra::ticks limit) {
  const auto self = shared_from_this();
  {
    const std::lock_guard guard(lock_);
    if (state_ != state::asked)
      co_return;
    answered_.emplace();  // under the lock, so that an answer either comes first or sets it
  }
  auto answer = answered_->wait_for(limit);
  const bool answered = co_await answer;
  if (answered)
    co_return;
  const std::lock_guard guard(lock_);
  state_ = state::answered;  // "Unknown", unless the name still arrives
  log_waiting();
}

}  // namespace tarnwheel
