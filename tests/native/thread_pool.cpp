#include "thread_pool.h"

#include <thread>
#include <utility>

#include "unseen.h"

namespace stand_in {

thread_pool& thread_pool::instance() {
  static thread_pool& pool = *new thread_pool;  // its threads outlive main
  return pool;
}

void thread_pool::submit(TP_OBJECT& object, const outcome& told, const FILETIME& due) {
  const auto bits = std::uint64_t{due.dwHighDateTime} << 32 | due.dwLowDateTime;
  const auto nanoseconds = -100 * static_cast<std::int64_t>(bits);
  submit(object, told, clock::now() + std::chrono::nanoseconds(nanoseconds));
}

void thread_pool::submit(TP_OBJECT& object, const outcome& told, clock::time_point due) {
  std::unique_ptr<job> submitted(new job{nullptr, told});
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

std::unique_ptr<thread_pool::job> thread_pool::take() {
  const unseen scope;
  std::unique_lock guard(lock_);
  for (;;) {
    if (jobs_.empty())
      submitted_.wait(guard);
    else if (const auto due = jobs_.begin()->first; due > clock::now())
      submitted_.wait_until(guard, due);
    else
      break;
  }
  auto taken = std::move(jobs_.extract(jobs_.begin()).mapped());
  --idle_threads_;
  ++taken->object->running;
  return taken;
}

void thread_pool::work() {
  for (;;) {
    {
      const auto taken = take();
      happens_after(taken.get());
      TP_CALLBACK_INSTANCE instance{taken->object};
      taken->object->call(&instance, taken->told);
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
    --instance.object->running;
    ended_.notify_all();
  }
  instance.object.reset();
}

void thread_pool::withdraw(TP_OBJECT& object) {
  const unseen scope;
  const std::lock_guard guard(lock_);
  std::erase_if(jobs_, [&](const auto& entry) { return entry.second->object.get() == &object; });
}

void thread_pool::stop(TP_OBJECT& object) {
  withdraw(object);
  {
    const unseen scope;
    std::unique_lock guard(lock_);
    ended_.wait(guard, [&] { return object.running == 0; });
  }
  happens_after(&object);
}

}  // namespace stand_in

using stand_in::outcome;
using stand_in::thread_pool;

BOOL TrySubmitThreadpoolCallback(simple_callback* callback, void* context, void*) {
  const auto once = std::make_shared<TP_OBJECT>();
  once->call = [=](PTP_CALLBACK_INSTANCE instance, auto&) { callback(instance, context); };
  thread_pool::instance().submit(*once);
  return TRUE;
}

void DisassociateCurrentThreadFromCallback(PTP_CALLBACK_INSTANCE instance) {
  thread_pool::instance().disassociate(*instance);
}

PTP_WORK CreateThreadpoolWork(object_callback* callback, void* context, void*) {
  return stand_in::hand_out([=](PTP_CALLBACK_INSTANCE instance, const outcome&, TP_OBJECT* object) {
    callback(instance, context, object);
  });
}

void SubmitThreadpoolWork(PTP_WORK work) {
  thread_pool::instance().submit(*work);
}

PTP_TIMER CreateThreadpoolTimer(object_callback* callback, void* context, void* environment) {
  return CreateThreadpoolWork(callback, context, environment);
}

void SetThreadpoolTimer(PTP_TIMER timer, const FILETIME* due, DWORD, DWORD) {
  thread_pool::instance().withdraw(*timer);
  if (due != nullptr)
    thread_pool::instance().submit(*timer, {}, *due);
}

void WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL) {
  thread_pool::instance().stop(*timer);
}

void CloseThreadpoolTimer(PTP_TIMER timer) {
  thread_pool::instance().withdraw(*timer);
  timer->self.reset();
}
