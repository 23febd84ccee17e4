// Standard input and output for coroutines: their reads and writes block.
#pragma once

#include <atomic>
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

// Writes bytes as they are to a file, a pipe or a console, whose writes block, on threads of the
// pool. A write that nobody reads outlives this, and ends with the process.
class output_stream {
 public:
  // `output` stays open until the process ends.
  explicit output_stream(HANDLE output);

  // Completes when the bytes are written, or the stream has been closed or has failed.
  ostra::future<void> write(std::vector<std::byte> bytes);

  // The Win32 error of the first write that has failed, after which nothing more is written.
  [[nodiscard]] DWORD error() const noexcept { return state_->error; }

  void close() { writes_.close(); }

 private:
  struct state {
    void write(const std::vector<std::byte>& bytes);

    const HANDLE output;
    std::atomic<DWORD> error = ERROR_SUCCESS;
  };

  const std::shared_ptr<state> state_;
  ostra::work_queue writes_;
};

}  // namespace tarnwheel::client
