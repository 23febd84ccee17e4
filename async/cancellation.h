// Cooperative cancellation: a source requests it, tokens observe it, subscriptions act on it.
//
// Locks are taken in the order source, linked source, token; links must not form a cycle. cancel()
// holds the source's lock while it visits the tokens, so a concurrent link or subscription either
// comes first and is reached, or comes later and sees that the source is cancelled: no cancellation
// is lost. Callbacks run later, on pool threads and without any of these locks.
#pragma once

#include <atomic>
#include <boost/intrusive/list.hpp>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "async/background.h"
#include "async/srw_lock.h"

namespace ostra {

class cancellation_source;
class cancellation_token;

namespace details {

class cancellation_source_body;

// An entry in a token's list of subscriptions. invoke() is called at most once, under the token's
// lock.
class cancellation_subscription_base : public boost::intrusive::list_base_hook<> {
 public:
  virtual void invoke() noexcept = 0;

 protected:
  ~cancellation_subscription_base() = default;
};

// The state shared by the copies of one token. Keeps its source's state alive and unlinks itself
// from it on destruction.
class token_body : public boost::intrusive::list_base_hook<> {
 public:
  token_body(std::shared_ptr<cancellation_source_body> source, std::atomic<bool>* requested);
  token_body(const token_body&) = delete;
  token_body& operator=(const token_body&) = delete;
  ~token_body();

  [[nodiscard]] bool is_cancelled() const noexcept { return cancelled_; }

  // Throws operation_cancelled, and links nothing, when the token is already cancelled.
  void subscribe(cancellation_subscription_base& subscription);
  void unsubscribe(cancellation_subscription_base& subscription) noexcept;

  // Called by the source, under the source's lock.
  void cancel() noexcept;

 private:
  // Constant after construction.
  const std::shared_ptr<cancellation_source_body> source_;
  std::atomic<bool>* const requested_;

  std::atomic<bool> cancelled_ = false;  // set under lock_

  // Guarded by lock_.
  srw_lock lock_;
  boost::intrusive::list<cancellation_subscription_base> subscriptions_;
};

// The state shared by the copies of a source and by its tokens.
class cancellation_source_body {
 public:
  [[nodiscard]] bool is_cancelled() const noexcept { return cancelled_; }
  void cancel() noexcept;
  void link(const std::shared_ptr<cancellation_source_body>& linked);
  void attach(token_body& token) noexcept;
  void detach(token_body& token) noexcept;

 private:
  std::atomic<bool> cancelled_ = false;  // set under lock_

  // Guarded by lock_.
  srw_lock lock_;
  boost::intrusive::list<token_body> tokens_;
  std::vector<std::weak_ptr<cancellation_source_body>> linked_;
};

// The part of a subscription that does not depend on its callback: its entry in the token's list
// and the wait for a running callback.
class subscriber : public cancellation_subscription_base, private background_call {
 protected:
  explicit subscriber(const cancellation_token& token);
  ~subscriber() = default;

  // Called once the derived object is complete. Throws operation_cancelled.
  void subscribe();

  // Called first in the derived destructor, which runs only if subscribe() did not throw. A
  // subscriber with a token is therefore linked and need not inspect its hook, which its neighbours
  // in the list change under the token's lock. On return the callback is not running and never
  // will: it has been unlinked, withdrawn if it was waiting for a thread, and waited for if it had
  // begun.
  void unsubscribe() noexcept;

 private:
  void invoke() noexcept final;
  void run() noexcept final;
  virtual void call() = 0;

  const std::shared_ptr<token_body> token_;  // null: a token that is never cancelled
  bool invoked_ = false;                     // guarded by the token's lock

  // Guarded by lock_.
  srw_lock lock_;
  condition_variable finished_;
  bool done_ = true;
};

}  // namespace details

// Observes one source; all copies observe the same one. A default-constructed token is never
// cancelled. Any thread may use it.
class cancellation_token {
 public:
  cancellation_token() noexcept = default;

  [[nodiscard]] bool is_cancelled() const noexcept { return body_ && body_->is_cancelled(); }

  // Throws operation_cancelled when the token is cancelled.
  void throw_if_cancelled() const;

 private:
  friend class cancellation_source;
  friend class details::subscriber;
  explicit cancellation_token(std::shared_ptr<details::token_body> body) noexcept
      : body_(std::move(body)) {}

  std::shared_ptr<details::token_body> body_;
};

// Requests cancellation. Copies are the same source. Any thread may use it.
class cancellation_source {
 public:
  cancellation_source() : body_(std::make_shared<details::cancellation_source_body>()) {}

  // Cancels every token and every linked source, once; later calls are no-ops.
  void cancel() const noexcept { body_->cancel(); }
  [[nodiscard]] bool is_cancelled() const noexcept { return body_->is_cancelled(); }

  // A new token. `requested`, if given, is set to true on cancellation, for code that polls a flag
  // between its steps; it must outlive the token and its copies. The token of a cancelled source is
  // cancelled from the start.
  [[nodiscard]] cancellation_token token(std::atomic<bool>* requested = nullptr) const {
    return cancellation_token(std::make_shared<details::token_body>(body_, requested));
  }

  // From now on, cancelling this source also cancels `linked`, for as long as `linked` exists. An
  // earlier cancellation is not passed on: check is_cancelled() after linking.
  void link(const cancellation_source& linked) const { body_->link(linked.body_); }

 private:
  std::shared_ptr<details::cancellation_source_body> body_;
};

// Runs `callback` on a pool thread, once, when the token is cancelled, possibly after cancel() has
// returned. The constructor throws operation_cancelled when the token is already cancelled. The
// destructor returns once the callback has finished, or has not started and never will. So the
// callback may use whatever outlives the subscription, but must not destroy the subscription.
// Exceptions from the callback are discarded.
template <class F>
class cancellation_subscription final : private details::subscriber {
 public:
  cancellation_subscription(const cancellation_token& token, F callback)
      : subscriber(token), callback_(std::move(callback)) {
    subscribe();
  }
  ~cancellation_subscription() { unsubscribe(); }

 private:
  void call() override { callback_(); }

  F callback_;
};

}  // namespace ostra
