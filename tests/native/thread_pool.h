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
  template <class Action>
  void run(Action action) {
    std::thread([action, kept = shared_from_this()] { action(); }).detach();
  }
  void submit(DWORD result = 0, OVERLAPPED* overlapped = nullptr) {
    run([this, result, overlapped] { call(nullptr, result, overlapped); });
  }

  std::function<void(TP_OBJECT** instance, DWORD result, OVERLAPPED*)> call;
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

namespace stand_in {

// Makes an object whose calls are `call(instance, result, overlapped, object)`.
template <class Call>
TP_OBJECT* hand_out(Call call) {
  const auto object = std::make_shared<TP_OBJECT>();
  object->call = [call, raw = object.get()](auto... told) { call(told..., raw); };
  object->self = object;
  return object.get();
}

// Relative times are negative counts of 100 nanoseconds.
inline auto time_of(const FILETIME& due) {
  const auto bits = std::uint64_t{due.dwHighDateTime} << 32 | due.dwLowDateTime;
  return std::chrono::steady_clock::now() +
         std::chrono::nanoseconds(-100 * static_cast<std::int64_t>(bits));
}

}  // namespace stand_in

inline BOOL TrySubmitThreadpoolCallback(auto callback, void* context, void*) {
  std::thread(callback, nullptr, context).detach();
  return TRUE;
}

inline PTP_WORK CreateThreadpoolWork(auto callback, void* context, void*) {
  return stand_in::hand_out(
      [=](auto instance, DWORD, auto, TP_OBJECT* object) { callback(instance, context, object); });
}
inline PTP_TIMER CreateThreadpoolTimer(auto callback, void* context, void* environment) {
  return CreateThreadpoolWork(callback, context, environment);
}

inline void SubmitThreadpoolWork(PTP_WORK work) {
  work->submit();
}

// The call that runs is not waited for any longer.
inline void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  if (const PTP_TIMER timer = std::exchange(*instance, nullptr)) {
    const std::lock_guard guard(timer->lock);
    --timer->running;
    timer->changed.notify_all();
  }
}

inline void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  const std::lock_guard guard(timer->lock);
  const unsigned setting = ++timer->settings;
  timer->changed.notify_all();
  if (due == nullptr)
    return;
  timer->run([timer, setting, time = stand_in::time_of(*due)] {
    PTP_TIMER fired = timer;
    std::unique_lock waiting(timer->lock);
    if (timer->changed.wait_until(waiting, time, [&] { return timer->settings != setting; }))
      return;
    ++timer->running;
    waiting.unlock();
    std::this_thread::sleep_for(std::chrono::microseconds(50));  // for a cancel to come between
    timer->call(&fired, 0, nullptr);
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
