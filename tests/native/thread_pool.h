// The stand-in's thread pool: threads that run calls, each at its time.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "windows.h"

namespace stand_in {

using clock = std::chrono::steady_clock;

// What a call is told; each kind of object has a use for some of it.
struct outcome {
  DWORD result = ERROR_SUCCESS;
  OVERLAPPED* overlapped = nullptr;
};

}  // namespace stand_in

// Work, a timer, a wait or the binding of a handle. The pointer that Windows hands out owns it
// through `self` until it is closed; calls that have not ended keep it alive longer.
struct TP_OBJECT : std::enable_shared_from_this<TP_OBJECT> {
  std::function<void(PTP_CALLBACK_INSTANCE, const stand_in::outcome&)> call;
  std::shared_ptr<TP_OBJECT> self;
  std::atomic<int> started = 0;  // of a binding: calls whose completion is still to come
  int running = 0;               // guarded by the pool's lock
};

struct TP_CALLBACK_INSTANCE {
  std::shared_ptr<TP_OBJECT> object;
};

namespace stand_in {

// Makes an object whose calls are `call(instance, outcome, object)`.
template <class Call>
TP_OBJECT* hand_out(Call call) {
  const auto object = std::make_shared<TP_OBJECT>();
  object->call = [call, raw = object.get()](PTP_CALLBACK_INSTANCE instance, const outcome& told) {
    call(instance, told, raw);
  };
  object->self = object;
  return object.get();
}

class thread_pool {
 public:
  static thread_pool& instance();

  void submit(TP_OBJECT& object, const outcome& told = {}, clock::time_point due = {});
  void submit(TP_OBJECT& object, const outcome& told, const FILETIME& due);

  // Drops the object's calls that have not begun; stop() also waits for those that have.
  void withdraw(TP_OBJECT& object);
  void stop(TP_OBJECT& object);

  // The call that runs is not waited for any longer.
  void disassociate(TP_CALLBACK_INSTANCE& instance);

 private:
  struct job {
    std::shared_ptr<TP_OBJECT> object;
    outcome told;
  };

  [[noreturn]] void work();
  std::unique_ptr<job> take();

  std::mutex lock_;
  std::condition_variable submitted_;
  std::condition_variable ended_;

  // Guarded by lock_.
  std::multimap<clock::time_point, std::unique_ptr<job>> jobs_;
  std::size_t idle_threads_ = 0;
};

}  // namespace stand_in
