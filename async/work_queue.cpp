#include "client/job_queue.h"

#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "async/background.h"
#include "async/srw_lock.h"

namespace tarnwheel::client {
struct job_queue::state {
  std::optional<job> next() {
    const std::lock_guard guard(lock);
    working = !waiting.empty();
    if (!working)
      return std::nullopt;
    running = std::move(waiting.front().done);
    job action = std::move(waiting.front().action);
    waiting.pop_front();
    return action;
  }

  void done() {
    std::optional<ostra::promise<void>> promise;
    {
      const std::lock_guard guard(lock);
      promise = std::exchange(running, std::nullopt);
    }
    if (promise)
      promise->set_value();
  }

  // Guarded by lock.
  ostra::srw_lock lock;
  std::deque<entry> waiting;
  std::optional<ostra::promise<void>> running;  // of the job that is being done
  bool working = false;
  bool closed = false;
};

job_queue::job_queue() : state_(std::make_shared<state>()) {}

ostra::future<void> job_queue::post(job action) {
  entry added{std::move(action), {}};
  auto done = added.done.get_future();
  bool starts = false;
  bool dropped = false;
  {
    const std::lock_guard guard(state_->lock);
    dropped = state_->closed;
    if (!dropped) {
      state_->waiting.push_back(std::move(added));
      starts = !std::exchange(state_->working, true);
    }
  }
  if (dropped)
    added.done.set_value();
  if (starts)
    static_cast<void>(work(state_));
  return done;
}

ostra::future<void> job_queue::work(std::shared_ptr<state> jobs) {
  // Not in a coroutine of its own, which might be done, on its new thread, before it is awaited
  // here: the jobs would block whoever has posted them.
  try {
    ostra::resume_background elsewhere;
    co_await elsewhere;
  } catch (const ostra::hresult_error&) {
    // There is no thread to be had, so it goes on here.
  }
  while (const auto action = jobs->next()) {
    (*action)();
    jobs->done();
  }
}

void job_queue::close() {
  std::deque<entry> dropped;
  std::optional<ostra::promise<void>> running;
  {
    const std::lock_guard guard(state_->lock);
    state_->closed = true;
    dropped.swap(state_->waiting);
    running = std::exchange(state_->running, std::nullopt);
  }
  if (running)
    running->set_value();
  for (entry& waiting : dropped)
    waiting.done.set_value();
}

}  // namespace tarnwheel::client
