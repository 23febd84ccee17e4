// Standard input, for those who wait for other things as well.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "async/future.h"
#include "async/work_queue.h"
#include "platform/win32.h"

namespace tarnwheel::client {

// Reads a file, a pipe or a console, whose reads block, on threads of the pool. A read that is
// never answered outlives this, and ends with the process.
class input_stream {
 public:
  static constexpr std::size_t kBlock = 16 * 1024;  // bytes

  // `input` stays open until the process ends.
  explicit input_stream(HANDLE input);

  // The next bytes, at most a block; none at the end of the input. One call at a time.
  ostra::future<std::vector<std::byte>> read();

  // The call that is under way fails with operation_cancelled; what comes of it is kept for the
  // next one.
  void abandon();

 private:
  struct state;

  const std::shared_ptr<state> state_;
  ostra::work_queue reads_;
};

}  // namespace tarnwheel::client
