// Cooperative cancellation: a source decides, tokens observe it, subscriptions act on it.
//
// Locks are taken in the order source, linked source, token; links must form no cycle. cancel()
// holds the source's lock while it goes through the tokens, so whoever links or subscribes either
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

// One subscriber in a token's list. invoke() is called at most once, under the token's lock.
class cancellation_subscription_base : public boost::intrusive::list_base_hook<> {
 public:
  virtual void invoke() noexcept = 0;

 protected:
  ~cancellation_subscription_base() = default;
};

// The state that the copies of one token share. Keeps its source's state alive and unlinks itself
// from it.
class token_body : public boost::intrusive::list_base_hook<> {
 public:
  token_body(std::shared_ptr<cancellation_source_body> source, std::atomic<bool>* requested);
  token_body(const token_body&) = delete;
  token_body& operator=(const token_body&) = delete;
  ~token_body();

  [[nodiscard]] bool is_cancelled() const noexcept { return cancelled_; }

  // Throws operation_cancelled, and links nothing, when the token is cancelled already.
  void subscribe(cancellation_subscription_base& subscription);
  void unsubscribe(cancellation_subscription_base& subscription) noexcept;

  // The source's side, under the source's lock.
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

// The state that a source and its tokens share.
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

// The part of a subscription that does not depend on its callback: its place in the token's list
// and the wait for a callback that is running.
class subscriber : public cancellation_subscription_base, private background_call {
 protected:
  explicit subscriber(const cancellation_token& token);
  ~subscriber() = default;

  // To be called when the derived object is complete; throws operation_cancelled.
  void subscribe();

  // To be called first in the derived destructor, which exists only after a subscribe() that did
  // not throw: so a subscriber with a token is linked, and need not ask its hook, which its
  // neighbours in the list change under the token's lock. Afterwards the callback does not run and
  // never will: it is unlinked, and withdrawn if it waits for a thread, and waited for if it has
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

// Observes one source; copies observe together. A default-constructed token is never cancelled.
// Any thread may use it.
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

// Decides to cancel. Copies are one source. Any thread may use it.
class cancellation_source {
 public:
  cancellation_source() : body_(std::make_shared<details::cancellation_source_body>()) {}

  // Cancels every token and every linked source, once; later calls do nothing.
  void cancel() const noexcept { body_->cancel(); }
  [[nodiscard]] bool is_cancelled() const noexcept { return body_->is_cancelled(); }

  // A new token. `requested`, when given, is set to true at the cancellation, for code that looks
  // at a flag between its steps; it must outlive the token and its copies. The token of a cancelled
  // source is cancelled from the start.
  [[nodiscard]] cancellation_token token(std::atomic<bool>* requested = nullptr) const {
    return cancellation_token(std::make_shared<details::token_body>(body_, requested));
  }

  // From now on a cancellation of this source cancels `linked` too, for as long as `linked` exists.
  // One that has happened already does not: look at is_cancelled() after linking.
  void link(const cancellation_source& linked) const { body_->link(linked.body_); }

 private:
  std::shared_ptr<details::cancellation_source_body> body_;
};

// Runs `callback` on a pool thread, once, when the token is cancelled, possibly after cancel() has
// returned. The constructor throws operation_cancelled when the token is cancelled already. The
// destructor returns when the callback has not started and never will, or has finished; so the
// callback may use whatever outlives the subscription, but must not destroy it. What the callback
// throws goes nowhere.
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
