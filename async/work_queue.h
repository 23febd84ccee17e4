// A queue for work that may block.
#pragma once

#include <functional>
#include <memory>

#include "async/future.h"

namespace ostra {

// Runs items of work one at a time, in the order in which they were posted, on threads of the pool.
// Any thread may post and close; neither ever waits for an item.
//
// An item that blocks, such as a write to a pipe that nobody reads, delays only the items behind
// it. It may outlive the queue, so it must own everything that it uses; an item that never returns
// ends with the process.
class work_queue {
 public:
  // Must not throw.
  using work = std::function<void()>;

  // Throws hresult_error.
  work_queue();
  work_queue(const work_queue&) = delete;
  work_queue& operator=(const work_queue&) = delete;
  ~work_queue() { close(); }

  // Completes when the item has run, or has been discarded by close().
  future<void> post(work item);

  // Discards the items that have not started, and every later one. The future of the item that is
  // running completes now, although the item itself goes on.
  void close();

 private:
  struct state;

  static future<void> run(std::shared_ptr<state> queue);

  const std::shared_ptr<state> state_;
};

}  // namespace ostra
