#include "thread_pool.h"

#include <thread>
#include <utility>

#include "unseen.h"

namespace stand_in {

clock::time_point time_of(const FILETIME& due) noexcept {
  const auto bits = std::uint64_t{due.dwHighDateTime} << 32 | due.dwLowDateTime;
  using ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  return clock::now() + ticks(-static_cast<std::int64_t>(bits));
}

thread_pool& thread_pool::instance() {
  static thread_pool& pool = *new thread_pool;  // its threads outlive main
  return pool;
}

thread_pool::thread_pool() {
  std::thread([this] { watch_time(); }).detach();
}

void thread_pool::submit(pool_object* object, pool_call call) {
  auto submitted = std::make_unique<job>();
  submitted->call = std::move(call);
  happens_before(submitted.get());
  const unseen scope;
  if (object != nullptr)
    submitted->object = object->shared_from_this();
  const std::lock_guard guard(lock_);
  enqueue(std::move(submitted));
}

void thread_pool::enqueue(std::unique_ptr<job> job) {
  if (job->object)
    ++job->object->outstanding;
  jobs_.push_back(std::move(job));
  // As Windows does: a thread that waits in its call does not hold up the others.
  if (idle_threads_ < jobs_.size()) {
    ++idle_threads_;
    std::thread([this] { work(); }).detach();
  }
  submitted_.notify_one();
}

std::unique_ptr<thread_pool::job> thread_pool::take() {
  const unseen scope;
  std::unique_lock guard(lock_);
  submitted_.wait(guard, [this] { return !jobs_.empty(); });
  --idle_threads_;
  auto taken = std::move(jobs_.front());
  jobs_.pop_front();
  return taken;
}

void thread_pool::work() {
  for (;;) {
    {
      const auto taken = take();
      happens_after(taken.get());
      TP_CALLBACK_INSTANCE instance{taken->object};
      taken->call(&instance);
      disassociate(instance);
    }
    const unseen scope;
    const std::lock_guard guard(lock_);
    ++idle_threads_;
  }
}

void thread_pool::disassociate(TP_CALLBACK_INSTANCE& instance) {
  if (!instance.object)
    return;
  happens_before(instance.object.get());
  const unseen scope;
  {
    const std::lock_guard guard(lock_);
    --instance.object->outstanding;
    ended_.notify_all();
  }
  instance.object.reset();
}

void thread_pool::wait(pool_object& object, bool drop) {
  {
    const unseen scope;
    std::unique_lock guard(lock_);
    if (drop) {
      object.outstanding -= static_cast<int>(
          std::erase_if(jobs_, [&](const auto& job) { return job->object.get() == &object; }));
    }
    ended_.wait(guard, [&] { return object.outstanding == 0; });
  }
  happens_after(&object);
}

void thread_pool::submit_at(clock::time_point time, pool_object& object, pool_call call) {
  withdraw(object);
  auto submitted = std::make_unique<job>();
  submitted->call = std::move(call);
  happens_before(submitted.get());
  const unseen scope;
  submitted->object = object.shared_from_this();
  const std::lock_guard guard(lock_);
  scheduled_.emplace(time, std::move(submitted));
  rescheduled_.notify_one();
}

void thread_pool::withdraw(pool_object& object) {
  const unseen scope;
  const std::lock_guard guard(lock_);
  std::erase_if(scheduled_,
                [&](const auto& entry) { return entry.second->object.get() == &object; });
}

void thread_pool::watch_time() {
  const unseen scope;
  std::unique_lock guard(lock_);
  for (;;) {
    if (scheduled_.empty()) {
      rescheduled_.wait(guard);
    } else if (const auto first = scheduled_.begin()->first; first > clock::now()) {
      rescheduled_.wait_until(guard, first);
    } else {
      enqueue(std::move(scheduled_.extract(scheduled_.begin()).mapped()));
    }
  }
}

}  // namespace stand_in

using stand_in::hand_out;
using stand_in::pool_target;
using stand_in::thread_pool;

struct TP_WORK : pool_target<work_callback> {
  using pool_target::pool_target;
};

struct TP_TIMER : pool_target<timer_callback> {
  using pool_target::pool_target;
};

BOOL TrySubmitThreadpoolCallback(simple_callback* callback, void* context, void*) {
  thread_pool::instance().submit(
      nullptr, [=](PTP_CALLBACK_INSTANCE instance) { callback(instance, context); });
  return TRUE;
}

void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  thread_pool::instance().disassociate(*instance);
}

PTP_WORK CreateThreadpoolWork(work_callback* callback, void* context, void*) {
  return hand_out(std::make_shared<TP_WORK>(callback, context));
}

void SubmitThreadpoolWork(PTP_WORK work) {
  thread_pool::instance().submit(work, [work](PTP_CALLBACK_INSTANCE instance) {
    work->callback(instance, work->context, work);
  });
}

PTP_TIMER CreateThreadpoolTimer(timer_callback* callback, void* context, void*) {
  return hand_out(std::make_shared<TP_TIMER>(callback, context));
}

void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  if (due == nullptr)
    return thread_pool::instance().withdraw(*timer);
  thread_pool::instance().submit_at(stand_in::time_of(*due), *timer,
                                    [timer](PTP_CALLBACK_INSTANCE instance) {
                                      timer->callback(instance, timer->context, timer);
                                    });
}

void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancel_pending) {
  thread_pool::instance().wait(*timer, cancel_pending != FALSE);
}

void CloseThreadpoolTimer(PTP_TIMER timer) {
  thread_pool::instance().withdraw(*timer);
  timer->self.reset();
}
