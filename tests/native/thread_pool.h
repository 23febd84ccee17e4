// The stand-in's thread pool: each call has a thread of its own. So a call comes after what was done
// before its submission, as Windows promises, and after nothing else; a queue that all threads share
// would order everything with everything, and hide most races from the thread sanitizer.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "types.h"

// Work, a timer, a wait or the binding of a handle. The pointer that Windows hands out owns it
// through `self` until it is closed; calls that have not ended keep it alive longer.
struct TP_OBJECT : std::enable_shared_from_this<TP_OBJECT> {
  static TP_OBJECT* hand_out() {
    const auto object = std::make_shared<TP_OBJECT>();
    object->self = object;
    return object.get();
  }
  void run(std::function<void()> action) {
    std::thread([action, kept = shared_from_this()] { action(); }).detach();
  }

  std::function<void(TP_OBJECT** instance)> call;
  std::shared_ptr<TP_OBJECT> self;
  std::atomic<int> started = 0;  // of a binding: calls whose completion is still to come

  // Of a timer, guarded by lock.
  std::mutex lock;
  std::condition_variable changed;
  unsigned settings = 0;  // a firing that was set before the last one does not come
  int running = 0;
};

// Where a timer's call finds the timer that waits for it; null for the calls of others.
using PTP_CALLBACK_INSTANCE = TP_OBJECT**;
using PTP_WORK = TP_OBJECT*;
using PTP_TIMER = TP_OBJECT*;
using PTP_WAIT = TP_OBJECT*;
using PTP_IO = TP_OBJECT*;
using TP_WAIT_RESULT = DWORD;

inline BOOL TrySubmitThreadpoolCallback(auto callback, void* context, void*) {
  std::thread(callback, nullptr, context).detach();
  return TRUE;
}

using thread_pool_callback = void (*)(PTP_CALLBACK_INSTANCE, void* context, TP_OBJECT*);
inline TP_OBJECT* CreateThreadpoolWork(thread_pool_callback callback, void* context, void*) {
  TP_OBJECT* const object = TP_OBJECT::hand_out();
  object->call = [=](auto instance) { callback(instance, context, object); };
  return object;
}
inline constexpr auto CreateThreadpoolTimer = &CreateThreadpoolWork;

inline void SubmitThreadpoolWork(PTP_WORK work) {
  work->run([work] { work->call(nullptr); });
}

// The call that runs is not waited for any longer.
inline void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  if (const PTP_TIMER timer = std::exchange(*instance, nullptr)) {
    const std::lock_guard guard(timer->lock);
    --timer->running;
    timer->changed.notify_all();
  }
}

// A relative time is a negative count of 100 nanoseconds.
inline void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  const std::lock_guard guard(timer->lock);
  const unsigned setting = ++timer->settings;
  timer->changed.notify_all();
  if (due == nullptr)
    return;
  const auto ticks = std::uint64_t{due->dwHighDateTime} << 32 | due->dwLowDateTime;
  const std::chrono::nanoseconds delay(-100 * static_cast<std::int64_t>(ticks));
  timer->run([timer, setting, delay] {
    PTP_TIMER fired = timer;
    std::unique_lock waiting(timer->lock);
    if (timer->changed.wait_for(waiting, delay, [&] { return timer->settings != setting; }))
      return;
    ++timer->running;
    waiting.unlock();
    std::this_thread::sleep_for(std::chrono::microseconds(50));  // for a cancel to come between
    timer->call(&fired);
    DisassociateCurrentThreadFromCallback(&fired);
  });
}

inline void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL) {
  SetThreadpoolTimer(timer, nullptr, 0, 0);
  std::unique_lock guard(timer->lock);
  timer->changed.wait(guard, [&] { return timer->running == 0; });
}

inline void CloseThreadpoolTimer(PTP_TIMER timer) {
  SetThreadpoolTimer(timer, nullptr, 0, 0);
  timer->self.reset();
}
