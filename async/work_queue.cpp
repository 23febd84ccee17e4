#include "async/work_queue.h"

#include <mutex>
#include <optional>
#include <utility>

#include "async/async_queue.h"
#include "async/completion.h"
#include "async/srw_lock.h"

namespace ostra {

struct work_queue::state {
  struct entry {
    work item;
    completion done;
  };

  // Returns false when the queue has been closed in the meantime; the item is then discarded.
  [[nodiscard]] bool begin(completion& done) {
    const std::lock_guard guard(lock);
    if (!closed)
      running = std::move(done);
    return !closed;
  }

  // Completes the running item, if any.
  void end(bool closes) {
    std::optional<completion> done;
    const std::lock_guard guard(lock);
    closed = closed || closes;
    running.swap(done);
  }

  async_queue<entry, pool_resumption> waiting;

  // Guarded by lock.
  srw_lock lock;
  std::optional<completion> running;
  bool closed = false;
};

work_queue::work_queue() : state_(std::make_shared<state>()) {
  static_cast<void>(run(state_));
}

future<void> work_queue::post(work item) {
  state::entry added{std::move(item), {}};
  auto done = added.done.get_future();
  static_cast<void>(state_->waiting.push(std::move(added)));
  return done;
}

future<void> work_queue::run(std::shared_ptr<state> queue) {
  for (;;) {
    auto popped = queue->waiting.pop();
    auto next = co_await popped;
    if (!next)
      co_return;
    if (!queue->begin(next->done))
      co_return;
    next->item();
    queue->end(false);
  }
}

void work_queue::close() {
  state_->waiting.close();
  state_->end(true);
}

}  // namespace ostra
