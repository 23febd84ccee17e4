// Work that may block, for those who must not.
#pragma once

#include <functional>
#include <memory>

#include "async/future.h"

namespace tarnwheel::client {

// Does jobs one after another, on threads of the pool. Any thread may use it.
//
// A job that blocks, as a write does to somebody who does not read, holds up those behind it and
// nobody else: it may outlive the queue, so what it uses is its own. The end of the process ends
// it.
class job_queue {
 public:
  // Must not throw.
  using job = std::function<void()>;

  job_queue();
  job_queue(const job_queue&) = delete;
  job_queue& operator=(const job_queue&) = delete;
  ~job_queue() { close(); }

  // Completes when the job is done, or has been dropped.
  ostra::future<void> post(job action);

  // Drops the jobs that have not begun, and all that come later; nobody waits for the others.
  void close();

 private:
  struct entry {
    job action;
    ostra::promise<void> done;
  };
  struct state;

  static ostra::future<void> work(std::shared_ptr<state> jobs);

  const std::shared_ptr<state> state_;
};

}  // namespace tarnwheel::client
