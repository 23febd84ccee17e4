#include "client/streams/standard_streams.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include "async/srw_lock.h"

namespace tarnwheel::client {

struct input_stream::state {
  using bytes = std::vector<std::byte>;

  explicit state(HANDLE handle) : input(handle) {}

  // A pipe may deliver an empty write, which is not its end.
  [[nodiscard]] bool is_open_pipe() const {
    return ::GetFileType(input) == FILE_TYPE_PIPE &&
           ::PeekNamedPipe(input, nullptr, 0, nullptr, nullptr, nullptr);
  }

  // Blocks.
  [[nodiscard]] bytes read_block() {
    bytes block(kBlock);
    DWORD size = 0;
    do {
      if (!::ReadFile(input, block.data(), static_cast<DWORD>(block.size()), &size, nullptr)) {
        note(::GetLastError());
        return {};
      }
    } while (size == 0 && is_open_pipe());
    block.resize(size);
    return block;
  }

  // A program may have been started without standard input.
  void note(DWORD reason) {
    constexpr DWORD kEnds[] = {ERROR_BROKEN_PIPE, ERROR_PIPE_NOT_CONNECTED, ERROR_HANDLE_EOF,
                               ERROR_INVALID_HANDLE};
    if (std::ranges::find(kEnds, reason) == std::end(kEnds))
      error = reason;
  }

  void read() {
    bytes block = read_block();
    std::optional<ostra::promise<bytes>> asked;
    {
      const std::lock_guard guard(lock);
      reading = false;
      asked = std::exchange(waiter, std::nullopt);
      if (!asked)
        ready = std::move(block);
    }
    if (asked)
      asked->set_value(std::move(block));
  }

  const HANDLE input;
  std::atomic<DWORD> error = ERROR_SUCCESS;

  // Guarded by lock.
  ostra::srw_lock lock;
  bool abandoned = false;
  bool reading = false;
  std::optional<bytes> ready;  // arrived after its call had been abandoned
  std::optional<ostra::promise<bytes>> waiter;
};

input_stream::input_stream(HANDLE input) : state_(std::make_shared<state>(input)) {}

ostra::future<std::vector<std::byte>> input_stream::read() {
  ostra::promise<std::vector<std::byte>> asked;
  auto next = asked.get_future();
  std::optional<std::vector<std::byte>> block;
  bool starts = false;
  {
    const std::lock_guard guard(state_->lock);
    if (state_->abandoned)
      return next;  // destroying the promise cancels the call
    block = std::exchange(state_->ready, std::nullopt);
    if (!block) {
      state_->waiter = std::move(asked);
      starts = !std::exchange(state_->reading, true);
    }
  }
  if (block)
    asked.set_value(std::move(*block));
  else if (starts)
    static_cast<void>(reads_.post([stream = state_] { stream->read(); }));
  return next;
}

void input_stream::abandon() {
  std::optional<ostra::promise<std::vector<std::byte>>> asked;
  {
    const std::lock_guard guard(state_->lock);
    state_->abandoned = true;
    asked = std::exchange(state_->waiter, std::nullopt);
  }
  // Destroying the promise unkept fails the call with operation_cancelled.
}

void input_stream::resume() {
  const std::lock_guard guard(state_->lock);
  state_->abandoned = false;
}

DWORD input_stream::error() const noexcept {
  return state_->error;
}

void output_stream::state::write(const std::vector<std::byte>& bytes) {
  for (auto rest = std::span(bytes); !rest.empty() && error == ERROR_SUCCESS;) {
    DWORD written = 0;
    if (::WriteFile(output, rest.data(), static_cast<DWORD>(rest.size()), &written, nullptr))
      rest = rest.subspan(written);
    else
      error = ::GetLastError();
  }
}

output_stream::output_stream(HANDLE output) : state_(std::make_shared<state>(output)) {}

ostra::future<void> output_stream::write(std::vector<std::byte> bytes) {
  return writes_.post([stream = state_, block = std::move(bytes)] { stream->write(block); });
}

}  // namespace tarnwheel::client
