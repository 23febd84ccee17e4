// The stand-in's thread pool: threads that run calls, each at its time.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "types.h"
#include "unseen.h"

// Work, a timer, a wait or the binding of a handle. The pointer that Windows hands out owns it
// through `self` until it is closed; calls that have not ended keep it alive longer.
struct TP_OBJECT : std::enable_shared_from_this<TP_OBJECT> {
  std::function<void(PTP_CALLBACK_INSTANCE, DWORD result, OVERLAPPED*)> call;
  std::shared_ptr<TP_OBJECT> self;
  std::atomic<int> started = 0;  // of a binding: calls whose completion is still to come
  int running = 0;               // guarded by the pool's lock
};

struct TP_CALLBACK_INSTANCE {
  std::shared_ptr<TP_OBJECT> object;
};

namespace stand_in {

class thread_pool {
  using clock = std::chrono::steady_clock;

 public:
  static thread_pool& instance() {
    static thread_pool& pool = *new thread_pool;  // its threads outlive main
    return pool;
  }

  void submit(TP_OBJECT& object, DWORD result = 0, OVERLAPPED* call = nullptr,
              clock::time_point due = {}) {
    std::unique_ptr<job> submitted(new job{nullptr, result, call});
    happens_before(submitted.get());
    const unseen scope;
    submitted->object = object.shared_from_this();
    const std::lock_guard guard(lock_);
    jobs_.emplace(due, std::move(submitted));
    // As Windows does: a thread that waits in its call does not hold up the others.
    if (idle_threads_ < jobs_.size()) {
      ++idle_threads_;
      std::thread([this] { work(); }).detach();
    }
    submitted_.notify_one();
  }

  void submit_at(const FILETIME& due, TP_OBJECT& object, DWORD result) {
    const auto bits = std::uint64_t{due.dwHighDateTime} << 32 | due.dwLowDateTime;
    const std::chrono::nanoseconds relative(-100 * static_cast<std::int64_t>(bits));
    submit(object, result, nullptr, clock::now() + relative);
  }

  // Drops the object's calls that have not begun.
  void withdraw(TP_OBJECT& object) {
    const unseen scope;
    const std::lock_guard guard(lock_);
    std::erase_if(jobs_, [&](const auto& entry) { return entry.second->object.get() == &object; });
  }

  // Waits for those that have.
  void wait(TP_OBJECT& object) {
    {
      const unseen scope;
      std::unique_lock guard(lock_);
      ended_.wait(guard, [&] { return object.running == 0; });
    }
    happens_after(&object);
  }

  // The call that runs is not waited for any longer.
  void disassociate(TP_CALLBACK_INSTANCE& instance) {
    if (!instance.object)
      return;
    happens_before(instance.object.get());
    const unseen scope;
    {
      const std::lock_guard guard(lock_);
      --instance.object->running;
      ended_.notify_all();
    }
    instance.object.reset();
  }

 private:
  struct job {
    std::shared_ptr<TP_OBJECT> object;
    DWORD result;
    OVERLAPPED* call;
  };

  [[noreturn]] void work() {
    for (;;) {
      {
        const auto taken = take();
        happens_after(taken.get());
        TP_CALLBACK_INSTANCE instance{taken->object};
        taken->object->call(&instance, taken->result, taken->call);
        disassociate(instance);
      }
      const unseen scope;
      const std::lock_guard guard(lock_);
      ++idle_threads_;
    }
  }

  std::unique_ptr<job> take() {
    const unseen scope;
    std::unique_lock guard(lock_);
    while (jobs_.empty() || jobs_.begin()->first > clock::now()) {
      if (jobs_.empty())
        submitted_.wait(guard);
      else
        submitted_.wait_until(guard, clock::time_point(jobs_.begin()->first));
    }
    auto taken = std::move(jobs_.extract(jobs_.begin()).mapped());
    --idle_threads_;
    ++taken->object->running;
    return taken;
  }

  std::mutex lock_;
  std::condition_variable submitted_;
  std::condition_variable ended_;

  // Guarded by lock_.
  std::multimap<clock::time_point, std::unique_ptr<job>> jobs_;
  std::size_t idle_threads_ = 0;
};

// Makes an object whose calls are `call(instance, result, overlapped, object)`.
template <class Call>
TP_OBJECT* hand_out(Call call) {
  const auto object = std::make_shared<TP_OBJECT>();
  object->call = [call, raw = object.get()](auto... told) { call(told..., raw); };
  object->self = object;
  return object.get();
}

}  // namespace stand_in

inline BOOL TrySubmitThreadpoolCallback(void (*callback)(PTP_CALLBACK_INSTANCE, void*),
                                        void* context, void*) {
  const auto once = std::make_shared<TP_OBJECT>();
  once->call = [=](auto instance, DWORD, auto) { callback(instance, context); };
  stand_in::thread_pool::instance().submit(*once);
  return TRUE;
}

inline void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  stand_in::thread_pool::instance().disassociate(*instance);
}

inline PTP_WORK CreateThreadpoolWork(void (*callback)(PTP_CALLBACK_INSTANCE, void*, TP_OBJECT*),
                                     void* context, void*) {
  return stand_in::hand_out(
      [=](auto instance, DWORD, auto, TP_OBJECT* object) { callback(instance, context, object); });
}
inline constexpr auto CreateThreadpoolTimer = &CreateThreadpoolWork;

inline void SubmitThreadpoolWork(PTP_WORK work) {
  stand_in::thread_pool::instance().submit(*work);
}

inline void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  stand_in::thread_pool::instance().withdraw(*timer);
  if (due != nullptr)
    stand_in::thread_pool::instance().submit_at(*due, *timer, 0);
}

inline void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL) {
  stand_in::thread_pool::instance().withdraw(*timer);
  stand_in::thread_pool::instance().wait(*timer);
}

inline void CloseThreadpoolTimer(PTP_TIMER timer) {
  stand_in::thread_pool::instance().withdraw(*timer);
  timer->self.reset();
}
