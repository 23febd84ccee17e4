#include "async/background.h"

#include <mutex>

#include "async/errors.h"
#include "async/srw_lock.h"

namespace ostra {

// The calls that wait for a pool thread, in the order in which they were posted. Each post submits
// the single work object once more; each submission runs at most one call, and none when its call
// has been withdrawn. Never destroyed: pool threads may still run while the process exits.
class background_queue {
  using hook = boost::intrusive::list_base_hook<boost::intrusive::tag<background_queue>>;

 public:
  static background_queue& instance() {
    static background_queue& queue = *new background_queue;
    return queue;
  }

  void post(background_call& call) noexcept {
    {
      const std::lock_guard guard(lock_);
      calls_.push_back(call);
    }
    ::SubmitThreadpoolWork(work_);
  }

  bool withdraw(background_call& call) noexcept {
    const std::lock_guard guard(lock_);
    if (!static_cast<hook&>(call).is_linked())
      return false;
    calls_.erase(calls_.iterator_to(call));
    return true;
  }

 private:
  background_queue()
      : work_(details::check_pointer(::CreateThreadpoolWork(&on_submission, this, nullptr))) {}

  static void CALLBACK on_submission(PTP_CALLBACK_INSTANCE, void* context, PTP_WORK) noexcept {
    auto& self = *static_cast<background_queue*>(context);
    if (background_call* call = self.take())
      call->run();
  }

  background_call* take() noexcept {
    const std::lock_guard guard(lock_);
    if (calls_.empty())
      return nullptr;
    background_call& call = calls_.front();
    calls_.pop_front();
    return &call;
  }

  const PTP_WORK work_;

  // Guarded by lock_.
  srw_lock lock_;
  boost::intrusive::list<background_call, boost::intrusive::base_hook<hook>> calls_;
};

background_call::background_call() {
  background_queue::instance();
}

void background_call::post() noexcept {
  background_queue::instance().post(*this);
}

bool background_call::withdraw() noexcept {
  return background_queue::instance().withdraw(*this);
}

bool resume_background::await_suspend(std::coroutine_handle<> waiter) noexcept {
  const auto resume = [](PTP_CALLBACK_INSTANCE, void* frame) noexcept {
    std::coroutine_handle<>::from_address(frame).resume();
  };
  if (::TrySubmitThreadpoolCallback(resume, waiter.address(), nullptr))
    return true;  // the coroutine may already run elsewhere, and this object be gone
  error_ = ::GetLastError();
  return false;
}

void resume_background::await_resume() const {
  if (error_ != ERROR_SUCCESS)
    details::throw_win32(error_);
}

}  // namespace ostra
