// The stand-in's thread pool, which runs each callback on a thread of its own. A callback thus
// happens after everything that preceded its submission, as Windows promises, and is ordered with
// nothing else. A queue shared by all threads would order every callback with every other, and so
// hide most races from the thread sanitizer.
#pragma once

#include <atomic>
#include <bit>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

#include "types.h"

// Work or a timer. It keeps itself alive through `self` until it is closed; a timer's firings keep
// it alive longer.
struct TP_OBJECT {
  std::function<void(TP_OBJECT** instance)> call;
  std::shared_ptr<TP_OBJECT> self;

  // Timers only.
  std::stop_source setting;
  std::atomic<int> firings = 0;  // pending or running
};

// Points to the timer that waits for this callback, or to null once it no longer does; null for the
// callbacks of other objects.
using PTP_CALLBACK_INSTANCE = TP_OBJECT**;
typedef TP_OBJECT *PTP_WORK, *PTP_TIMER, *PTP_WAIT;

inline BOOL TrySubmitThreadpoolCallback(auto callback, void* context, void*) {
  std::thread(callback, nullptr, context).detach();
  return TRUE;
}

using thread_pool_callback = void (*)(PTP_CALLBACK_INSTANCE, void* context, TP_OBJECT*);
inline TP_OBJECT* CreateThreadpoolWork(thread_pool_callback callback, void* context, void*) {
  const auto object = std::make_shared<TP_OBJECT>();
  object->self = object;
  object->call = [=, handed_out = object.get()](TP_OBJECT** instance) {
    callback(instance, context, handed_out);
  };
  return object.get();
}
inline constexpr auto CreateThreadpoolTimer = &CreateThreadpoolWork;

inline void SubmitThreadpoolWork(PTP_WORK work) {
  std::thread(work->call, nullptr).detach();
}

// From now on the timer does not wait for the running callback.
inline void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  if (const PTP_TIMER timer = std::exchange(*instance, nullptr))
    --timer->firings;
}

// A relative time is negative, in units of 100 nanoseconds.
inline void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  timer->setting.request_stop();
  if (due == nullptr)
    return;
  const std::chrono::nanoseconds delay(-100 * std::bit_cast<std::int64_t>(*due));
  ++timer->firings;
  std::jthread firing([delay, kept = timer->self](std::stop_token withdrawn) {
    PTP_TIMER fired = kept.get();
    std::mutex lock;
    std::unique_lock guard(lock);
    std::condition_variable_any().wait_for(guard, withdrawn, delay, [] { return false; });
    if (!withdrawn.stop_requested()) {
      // Leaves room for a cancel, and for the next wait of the one that it resumes.
      std::this_thread::sleep_for(std::chrono::microseconds(500));
      kept->call(&fired);
    }
    DisassociateCurrentThreadFromCallback(&fired);
  });
  timer->setting = firing.get_stop_source();
  firing.detach();
}

inline void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL) {
  while (timer->firings != 0)
    std::this_thread::yield();
}

inline void CloseThreadpoolTimer(PTP_TIMER timer) {
  timer->setting.request_stop();
  timer->self.reset();
}

// Nothing that runs here waits for a handle, so these are declared only.
using TP_WAIT_RESULT = DWORD;
using wait_callback = void (*)(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT, TP_WAIT_RESULT);
[[gnu::weak]] PTP_WAIT CreateThreadpoolWait(wait_callback callback, void* context, void*);
[[gnu::weak]] void SetThreadpoolWait(PTP_WAIT, HANDLE, const FILETIME* limit);
[[gnu::weak]] void CloseThreadpoolWait(PTP_WAIT);
