#include "async/work_queue.h"

#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "async/background.h"
#include "async/errors.h"
#include "async/srw_lock.h"

namespace ostra {

struct work_queue::state {
  std::optional<work> next() {
    const std::lock_guard guard(lock);
    active = !waiting.empty();
    if (!active)
      return std::nullopt;
    running = std::move(waiting.front().done);
    work item = std::move(waiting.front().item);
    waiting.pop_front();
    return item;
  }

  void complete() {
    std::optional<promise<void>> done;
    {
      const std::lock_guard guard(lock);
      done = std::exchange(running, std::nullopt);
    }
    if (done)
      done->set_value();
  }

  // Guarded by lock.
  srw_lock lock;
  std::deque<entry> waiting;
  std::optional<promise<void>> running;  // of the item that is running
  bool active = false;                   // run() is under way
  bool closed = false;
};

work_queue::work_queue() : state_(std::make_shared<state>()) {}

future<void> work_queue::post(work item) {
  entry added{std::move(item), {}};
  auto done = added.done.get_future();
  bool starts = false;
  bool discarded = false;
  {
    const std::lock_guard guard(state_->lock);
    discarded = state_->closed;
    if (!discarded) {
      state_->waiting.push_back(std::move(added));
      starts = !std::exchange(state_->active, true);
    }
  }
  if (discarded)
    added.done.set_value();
  if (starts)
    static_cast<void>(run(state_));
  return done;
}

future<void> work_queue::run(std::shared_ptr<state> queue) {
  // The switch of threads is awaited here and not in a coroutine of its own, which might complete on
  // its new thread before it is awaited: the items would then run on the thread that posts them.
  try {
    resume_background on_pool_thread;
    co_await on_pool_thread;
  } catch (const hresult_error&) {
    // The pool takes no more work, so the items run on this thread.
  }
  while (const auto item = queue->next()) {
    (*item)();
    queue->complete();
  }
}

void work_queue::close() {
  std::deque<entry> discarded;
  std::optional<promise<void>> running;
  {
    const std::lock_guard guard(state_->lock);
    state_->closed = true;
    discarded.swap(state_->waiting);
    running = std::exchange(state_->running, std::nullopt);
  }
  if (running)
    running->set_value();
  for (entry& waiting : discarded)
    waiting.done.set_value();
}

}  // namespace ostra
