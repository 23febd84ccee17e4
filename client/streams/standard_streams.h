// Standard input and output, whose reads and writes block, for coroutines.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "async/future.h"
#include "async/work_queue.h"
#include "platform/win32.h"

namespace tarnwheel::client {

// Reads a file, a pipe or a console, whose reads block, on pool threads. A read that never returns
// outlives this, and ends with the process.
class input_stream {
 public:
  static constexpr std::size_t kBlock = 16 * 1024;  // bytes

  // `input` must stay open until the process ends.
  explicit input_stream(HANDLE input);

  // Completes with the next bytes, up to kBlock; none at the end of the input, or when it cannot be
  // read. One call at a time.
  ostra::future<std::vector<std::byte>> read();

  // Fails the call in progress, and later ones until resume(), with operation_cancelled. The bytes
  // that the call in progress would have read are kept for the next one. Any thread.
  void abandon();
  void resume();

  // The Win32 error of the read that ended the input, ERROR_SUCCESS at its true end.
  [[nodiscard]] DWORD error() const noexcept;

 private:
  struct state;

  const std::shared_ptr<state> state_;
  ostra::work_queue reads_;
};

// Writes bytes unchanged to a file, a pipe or a console, whose writes block, on pool threads. A
// write that never returns outlives this, and ends with the process.
class output_stream {
 public:
  // `output` must stay open until the process ends.
  explicit output_stream(HANDLE output);

  // Completes when the bytes are written, or the stream has been closed or has failed.
  ostra::future<void> write(std::vector<std::byte> bytes);

  // The Win32 error of the first failed write, after which nothing more is written.
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
