// The stand-in's thread pool: threads that run calls, some of them at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "windows.h"

namespace stand_in {

// What timers, waits, I/O and work have in common. The pointer that Windows hands out owns the
// object through `self`; calls that have not ended keep it alive longer.
struct pool_object : std::enable_shared_from_this<pool_object> {
  virtual ~pool_object() = default;

  std::shared_ptr<pool_object> self;
  int outstanding = 0;  // calls that wait for a thread or run; guarded by the pool's lock
};

// An object whose calls go to one function, with the context it was created with.
template <class Callback>
struct pool_target : pool_object {
  pool_target(Callback* callback_, void* context_) : callback(callback_), context(context_) {}

  Callback* const callback;
  void* const context;
};

// Hands out a new object.
template <class Object>
Object* hand_out(std::shared_ptr<Object> object) {
  object->self = object;
  return object.get();
}

using clock = std::chrono::steady_clock;
using pool_call = std::function<void(PTP_CALLBACK_INSTANCE)>;

// The time that a relative FILETIME stands for.
clock::time_point time_of(const FILETIME& due) noexcept;

class thread_pool {
 public:
  static thread_pool& instance();

  // The object may be null.
  void submit(pool_object* object, pool_call call);

  // At most one call an object waits for its time; another one replaces it.
  void submit_at(clock::time_point time, pool_object& object, pool_call call);
  void withdraw(pool_object& object);

  // Until no call of the object is outstanding; `drop` takes away those that have not started.
  void wait(pool_object& object, bool drop);

  // The call that runs no longer counts as outstanding.
  void disassociate(TP_CALLBACK_INSTANCE& instance);

 private:
  struct job {
    std::shared_ptr<pool_object> object;
    pool_call call;
  };

  thread_pool();
  [[noreturn]] void work();
  [[noreturn]] void watch_time();
  std::unique_ptr<job> take();
  void enqueue(std::unique_ptr<job> job);

  std::mutex lock_;
  std::condition_variable submitted_;
  std::condition_variable rescheduled_;
  std::condition_variable ended_;

  // Guarded by lock_.
  std::deque<std::unique_ptr<job>> jobs_;
  std::multimap<clock::time_point, std::unique_ptr<job>> scheduled_;
  std::size_t idle_threads_ = 0;
};

}  // namespace stand_in

struct TP_CALLBACK_INSTANCE {
  std::shared_ptr<stand_in::pool_object> object;
};
