#include "async/overlapped.h"

#include "async/errors.h"

namespace ostra {
namespace {

constexpr unsigned kWarning = 2;

// The two highest bits of an NTSTATUS.
unsigned severity_of(ULONG_PTR status) noexcept {
  return static_cast<DWORD>(status) >> 30;
}

}  // namespace

void io_binding::bind(HANDLE handle, immediate_success mode) {
  if (mode == immediate_success::continues_inline) {
    details::check_bool(
        ::SetFileCompletionNotificationModes(handle, FILE_SKIP_COMPLETION_PORT_ON_SUCCESS));
  }
  io_.reset();
  io_.reset(details::check_pointer(
      ::CreateThreadpoolIo(handle, &io_operation::on_completion, nullptr, nullptr)));
  handle_ = handle;
  mode_ = mode;
}

io_operation::io_operation(const io_binding& binding, const cancellation_token& token,
                           std::uint64_t offset)
    : OVERLAPPED{}, binding_(binding), subscription_(token, cancel{this}) {
  Offset = static_cast<DWORD>(offset);
  OffsetHigh = static_cast<DWORD>(offset >> 32);
}

void io_operation::before_start(std::coroutine_handle<> waiter) noexcept {
  waiter_ = waiter;
  ::StartThreadpoolIo(binding_.io_.get());
}

bool io_operation::completion_is_owed(DWORD error) const noexcept {
  if (error == ERROR_SUCCESS)
    return binding_.mode_ == immediate_success::queues_completion;
  return error == ERROR_IO_PENDING || severity_of(Internal) == kWarning;
}

bool io_operation::after_start(DWORD error) noexcept {
  if (!completion_is_owed(error)) {
    ::CancelThreadpoolIo(binding_.io_.get());
    result_ = error;
    return false;
  }
  if ((state_.fetch_or(issued) & cancel_requested) != 0)
    ::CancelIoEx(handle(), this);
  // The last access, unless the completion came first and left this thread to resume the coroutine.
  return (state_.fetch_or(submit_completed) & io_completed) == 0;
}

void CALLBACK io_operation::on_completion(PTP_CALLBACK_INSTANCE, void*, void* overlapped,
                                          ULONG result, ULONG_PTR, PTP_IO) noexcept {
  auto& self = *static_cast<io_operation*>(static_cast<OVERLAPPED*>(overlapped));
  self.result_ = result;
  const auto waiter = self.waiter_;
  if ((self.state_.fetch_or(io_completed) & submit_completed) != 0)
    waiter.resume();
}

void io_operation::request_cancel() noexcept {
  if ((state_.fetch_or(cancel_requested) & issued) != 0)
    ::CancelIoEx(handle(), this);
}

bool io_operation::succeeded() const noexcept {
  if (result_ == ERROR_SUCCESS || result_ == ERROR_HANDLE_EOF)
    return true;
  // The NTSTATUS is meaningful only if the call reached a completion.
  return (state_ & io_completed) != 0 && static_cast<LONG>(Internal) >= 0;
}

DWORD io_operation::result() const {
  if (!succeeded())
    details::throw_win32(result_);
  return static_cast<DWORD>(InternalHigh);
}

DWORD read_file::operator()(HANDLE file, OVERLAPPED* overlapped) const noexcept {
  return ::ReadFile(file, buffer, size, nullptr, overlapped) ? ERROR_SUCCESS : ::GetLastError();
}

DWORD write_file::operator()(HANDLE file, OVERLAPPED* overlapped) const noexcept {
  return ::WriteFile(file, data, size, nullptr, overlapped) ? ERROR_SUCCESS : ::GetLastError();
}

}  // namespace ostra
