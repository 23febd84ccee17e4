// Moves work to threads of the process's default thread pool.
#pragma once

#include <boost/intrusive/list.hpp>
#include <coroutine>

#include "platform/win32.h"

namespace ostra {

// co_await resume_background() moves the coroutine to a pool thread. Throws hresult_error, on the
// current thread, when the pool accepts no more work.
class [[nodiscard]] resume_background {
 public:
  [[nodiscard]] bool await_ready() const noexcept { return false; }
  [[nodiscard]] bool await_suspend(std::coroutine_handle<> waiter) noexcept;
  void await_resume() const;

 private:
  DWORD error_ = ERROR_SUCCESS;
};

// As resume_background, but the coroutine continues on the current thread when the pool accepts no
// more work.
class [[nodiscard]] try_resume_background : public resume_background {
 public:
  void await_resume() const noexcept {}
};

// A call to run on a pool thread whose posting must neither fail nor allocate: cancellations and
// wake-ups, which could not be retried. Its owner keeps it alive until it has started or has been
// withdrawn. It may be posted again once it has started.
//
// The constructor throws hresult_error when the process has no pool object for these calls yet and
// Windows cannot create one.
class background_call
    : public boost::intrusive::list_base_hook<boost::intrusive::tag<class background_queue>> {
 public:
  background_call();
  background_call(const background_call&) = delete;
  background_call& operator=(const background_call&) = delete;

  // Any thread; not while it is already posted.
  void post() noexcept;

  // True when the call was still waiting to start and now never will.
  bool withdraw() noexcept;

 protected:
  ~background_call() = default;

 private:
  friend class background_queue;

  // Runs on a pool thread. May destroy this object.
  virtual void run() noexcept = 0;
};

}  // namespace ostra
