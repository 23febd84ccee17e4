#include "async/cancellation.h"

#include <algorithm>
#include <mutex>

#include "async/errors.h"

namespace ostra {

void cancellation_token::throw_if_cancelled() const {
  if (is_cancelled())
    throw operation_cancelled();
}

namespace details {

token_body::token_body(std::shared_ptr<cancellation_source_body> source,
                       std::atomic<bool>* requested)
    : source_(std::move(source)), requested_(requested) {
  source_->attach(*this);
}

token_body::~token_body() {
  source_->detach(*this);
}

void token_body::subscribe(cancellation_subscription_base& subscription) {
  const std::lock_guard guard(lock_);
  if (cancelled_)
    throw operation_cancelled();
  subscriptions_.push_back(subscription);
}

void token_body::unsubscribe(cancellation_subscription_base& subscription) noexcept {
  const std::lock_guard guard(lock_);
  subscriptions_.erase(subscriptions_.iterator_to(subscription));
}

void token_body::cancel() noexcept {
  const std::lock_guard guard(lock_);
  cancelled_ = true;
  if (requested_ != nullptr)
    *requested_ = true;
  for (auto& subscription : subscriptions_)
    subscription.invoke();
}

void cancellation_source_body::cancel() noexcept {
  const std::lock_guard guard(lock_);
  if (cancelled_.exchange(true))
    return;
  for (auto& token : tokens_)
    token.cancel();
  for (const auto& weak : linked_) {
    if (const auto linked = weak.lock())
      linked->cancel();
  }
  linked_ = {};
}

void cancellation_source_body::link(const std::shared_ptr<cancellation_source_body>& linked) {
  const std::lock_guard guard(lock_);
  // A source may live as long as the server, while every client links another one to it. Purging
  // expired links whenever the vector would grow keeps it to about twice the number still alive.
  if (linked_.size() == linked_.capacity()) {
    std::erase_if(linked_, [](const auto& weak) { return weak.expired(); });
    linked_.reserve(2 * linked_.size() + 1);
  }
  linked_.push_back(linked);
}

void cancellation_source_body::attach(token_body& token) noexcept {
  const std::lock_guard guard(lock_);
  tokens_.push_back(token);
  if (cancelled_)
    token.cancel();
}

void cancellation_source_body::detach(token_body& token) noexcept {
  const std::lock_guard guard(lock_);
  tokens_.erase(tokens_.iterator_to(token));
}

subscriber::subscriber(const cancellation_token& token) : token_(token.body_) {}

void subscriber::subscribe() {
  if (token_)
    token_->subscribe(*this);
}

void subscriber::unsubscribe() noexcept {
  if (!token_)
    return;
  token_->unsubscribe(*this);
  // Now unlinked, so invoked_ no longer changes.
  if (!invoked_ || withdraw())
    return;
  const std::lock_guard guard(lock_);
  while (!done_)
    finished_.wait(lock_);
}

void subscriber::invoke() noexcept {
  {
    const std::lock_guard guard(lock_);
    done_ = false;
  }
  invoked_ = true;
  post();
}

void subscriber::run() noexcept {
  try {
    call();
  } catch (...) {
    // A pool thread has no caller to report to, and the owner waits for done_ in any case.
  }
  const std::lock_guard guard(lock_);
  done_ = true;
  finished_.notify_one();
}

}  // namespace details
}  // namespace ostra
