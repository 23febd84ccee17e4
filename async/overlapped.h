// Overlapped I/O through the thread pool: the binding of a handle, and one awaiter for every call
// that takes an OVERLAPPED.
#pragma once

#include <atomic>
#include <coroutine>
#include <cstdint>
#include <utility>

#include "async/cancellation.h"
#include "platform/unique_resource.h"

namespace ostra {

struct threadpool_io_traits {
  using pointer = PTP_IO;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer io) noexcept { ::CloseThreadpoolIo(io); }
};
using unique_threadpool_io = Tamrin::unique_resource<threadpool_io_traits>;

// How a handle behaves when a call on it succeeds at once: it queues a completion as for a pending
// call, or lets the caller continue inline.
enum class immediate_success { queues_completion, continues_inline };

// Binds a handle to the thread pool. The handle's owner also owns this, keeps both until every call
// on the handle has ended (each call's coroutine holds the owner), and closes no handle that calls
// still use. Closing the binding inside a completion of its own handle is allowed.
class io_binding {
 public:
  io_binding() noexcept = default;

  // Binds `handle`, which the caller continues to own, and closes the previous binding.
  // continues_inline switches the handle to FILE_SKIP_COMPLETION_PORT_ON_SUCCESS. Throws
  // hresult_error.
  void bind(HANDLE handle, immediate_success mode);

  [[nodiscard]] bool is_bound() const noexcept { return static_cast<bool>(io_); }

 private:
  friend class io_operation;

  HANDLE handle_ = nullptr;
  immediate_success mode_ = immediate_success::queues_completion;
  unique_threadpool_io io_;
};

// One overlapped call; lives in the frame of the coroutine that awaits it.
//
// Three threads may access it: the one that starts the call, the pool thread that delivers its
// completion, and the pool thread that runs its cancellation. Each records in state_ what has
// happened:
//
// - The completion may come before the starting thread has finished its step. Whichever of the two
//   comes second, and sees the other's flag, resumes the coroutine, so the operation stays alive
//   until both are done with it. A thread that sets its flag and does not see the other's no longer
//   touches the operation.
// - The cancellation may come before the call is issued, when CancelIoEx would find nothing.
//   Whichever of `issued` and `cancel_requested` is set second leads to CancelIoEx. If the token
//   was cancelled even earlier, subscribing to it throws in the constructor.
// - The subscription's destructor waits for a cancellation that has begun, so a cancellation never
//   touches a destroyed operation. A cancellation after the completion finds nothing to cancel,
//   which is normal.
//
// Whether a completion will come is decided by the NTSTATUS that the call left in the OVERLAPPED.
// The Win32 error does not tell, because several NTSTATUS values map to one error. The I/O manager
// queues a completion for every call that it has accepted, whether the call pends or ends at once,
// unless it succeeds at once on a handle that skips those completions. A call that a driver ends
// with a warning (an NTSTATUS of severity 2) was accepted: that status is in Internal by the time
// the call returns, although the Win32 layer reports a failure. A call that fails at once with an
// error (severity 3) was not accepted: no completion is queued, and Internal keeps STATUS_PENDING,
// which has severity 0.
//
// Cancelling is only a request: the wait ends with the completion, usually with
// ERROR_OPERATION_ABORTED.
class io_operation : private OVERLAPPED {
 public:
  io_operation(const io_operation&) = delete;
  io_operation& operator=(const io_operation&) = delete;

  // For CancelIoEx by an owner that cancels without a token.
  [[nodiscard]] HANDLE handle() const noexcept { return binding_.handle_; }

 protected:
  // `offset` is the byte position in the file, 0 for devices and pipes. Throws operation_cancelled.
  io_operation(const io_binding& binding, const cancellation_token& token, std::uint64_t offset);
  ~io_operation() = default;

  [[nodiscard]] OVERLAPPED* overlapped() noexcept { return this; }

  // The starting thread's steps before and after the call. after_start() takes the call's Win32
  // error and returns whether the coroutine stays suspended.
  void before_start(std::coroutine_handle<> waiter) noexcept;
  [[nodiscard]] bool after_start(DWORD error) noexcept;

  // The number of bytes transferred. Throws the error of a failed call.
  [[nodiscard]] DWORD result() const;

 private:
  friend class io_binding;

  enum flag : unsigned { issued = 1, submit_completed = 2, io_completed = 4, cancel_requested = 8 };

  static void CALLBACK on_completion(PTP_CALLBACK_INSTANCE instance, void* context,
                                     void* overlapped, ULONG result, ULONG_PTR bytes,
                                     PTP_IO io) noexcept;
  void request_cancel() noexcept;
  [[nodiscard]] bool completion_is_owed(DWORD error) const noexcept;
  [[nodiscard]] bool succeeded() const noexcept;

  struct cancel {
    io_operation* operation;
    void operator()() const noexcept { operation->request_cancel(); }
  };

  const io_binding& binding_;
  std::coroutine_handle<> waiter_;
  DWORD result_ = ERROR_SUCCESS;
  std::atomic<unsigned> state_ = 0;
  cancellation_subscription<cancel> subscription_;  // last: destroyed before what its callback uses
};

// Awaits one call. Start is a callable, DWORD(HANDLE, OVERLAPPED*) noexcept, that makes the call
// and returns its Win32 error: ERROR_SUCCESS when it succeeded at once, ERROR_IO_PENDING when it is
// pending. The binding, and whatever Start points to, must live until the await has completed.
// co_await yields the number of bytes transferred; it throws hresult_error, or operation_cancelled
// for error 1223.
//
// The operation has succeeded when its error is 0 or ERROR_HANDLE_EOF, or its NTSTATUS is a success
// code: a serial read or write that times out completes with STATUS_TIMEOUT and the bytes so far,
// which the thread pool reports as an error.
template <class Start>
class io_call final : private io_operation {
 public:
  io_call(const io_binding& binding, Start start, const cancellation_token& token = {},
          std::uint64_t offset = 0)
      : io_operation(binding, token, offset), start_(std::move(start)) {}

  [[nodiscard]] bool await_ready() const noexcept { return false; }

  [[nodiscard]] bool await_suspend(std::coroutine_handle<> waiter) noexcept {
    before_start(waiter);
    return after_start(start_(handle(), overlapped()));
  }

  DWORD await_resume() const { return result(); }

 private:
  Start start_;
};

// ReadFile and WriteFile of at most `size` bytes.
struct read_file {
  void* buffer;
  DWORD size;
  DWORD operator()(HANDLE file, OVERLAPPED* overlapped) const noexcept;
};

struct write_file {
  const void* data;
  DWORD size;
  DWORD operator()(HANDLE file, OVERLAPPED* overlapped) const noexcept;
};

}  // namespace ostra
