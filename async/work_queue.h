// A queue for work that may block.
#pragma once

#include <functional>
#include <memory>

#include "async/future.h"

namespace ostra {

// Runs work items one at a time, in the order in which they were posted, on pool threads. Any
// thread may post and close; neither ever waits for an item.
//
// An item that blocks, such as a write to a pipe without a reader, delays only the items behind it.
// It may outlive the queue, so it must own everything it uses; an item that never returns ends with
// the process.
class work_queue {
 public:
  // Must not throw.
  using work = std::function<void()>;

  // Throws hresult_error.
  work_queue();
  work_queue(const work_queue&) = delete;
  work_queue& operator=(const work_queue&) = delete;
  ~work_queue() { close(); }

  // Completes when the item has run or has been discarded by close().
  future<void> post(work item);

  // Discards the items that have not started and any posted later. The future of the running item
  // completes now, although the item itself continues.
  void close();

 private:
  struct state;

  static future<void> run(std::shared_ptr<state> queue);

  const std::shared_ptr<state> state_;
};

}  // namespace ostra
