#include "kernel_object.h"

#include <cstdlib>
#include <utility>

namespace stand_in {
namespace {

constexpr answer kAborted = {0xC0000120, ERROR_OPERATION_ABORTED};

kernel_object& object_of(HANDLE handle) {
  return *static_cast<kernel_object*>(handle);
}

// A call on the binding has ended, or was never accepted.
void end_call(TP_OBJECT& binding) {
  if (binding.started.fetch_sub(1) <= 0)
    std::abort();  // without a StartThreadpoolIo
}

}  // namespace

void kernel_object::signal() {
  const std::lock_guard guard(lock);
  is_set = true;
  for (const auto& wait : std::exchange(waits, {}))
    thread_pool::instance().submit(*wait, {WAIT_OBJECT_0});
}

void kernel_object::send(answer sent) {
  const std::lock_guard guard(lock);
  if (waiting != nullptr)
    complete(sent, std::exchange(waiting, nullptr), waiting_buffer);
  else
    answers.push_back(sent);
}

// A call that fails at once with an error (severity 3) is not accepted: its OVERLAPPED stays
// pending, and no completion comes. One that ends at once with a warning has its completion.
DWORD kernel_object::read(char* buffer, OVERLAPPED* call) {
  const std::lock_guard guard(lock);
  call->Internal = 0x103;  // STATUS_PENDING
  if (answers.empty()) {
    waiting = call;
    waiting_buffer = buffer;
    return ERROR_IO_PENDING;
  }
  const answer sent = answers.front();
  answers.pop_front();
  if (sent.error == ERROR_SUCCESS && skips_on_success)
    finish(sent, call, buffer);
  else if (sent.status >> 30 != 3)
    complete(sent, call, buffer);
  return sent.error;
}

bool kernel_object::cancel(const OVERLAPPED* call) {
  const std::lock_guard guard(lock);
  if (waiting != call)
    return false;
  complete(kAborted, std::exchange(waiting, nullptr), waiting_buffer);
  return true;
}

void kernel_object::finish(const answer& sent, OVERLAPPED* call, char* buffer) {
  call->Internal = sent.status;
  call->InternalHigh = sent.status >> 30 < 2 ? 1 : 0;
  if (call->InternalHigh != 0)
    *buffer = 'x';
}

void kernel_object::complete(const answer& sent, OVERLAPPED* call, char* buffer) {
  finish(sent, call, buffer);
  thread_pool::instance().submit(*binding, {sent.error, call});
}

}  // namespace stand_in

using stand_in::kernel_object;
using stand_in::object_of;
using stand_in::outcome;
using stand_in::thread_pool;

BOOL CloseHandle(HANDLE handle) noexcept {
  delete static_cast<kernel_object*>(handle);
  return TRUE;
}

HANDLE CreateEventW(void*, BOOL, BOOL, const wchar_t*) {
  return new kernel_object;
}

BOOL SetEvent(HANDLE handle) noexcept {
  object_of(handle).signal();
  return TRUE;
}

PTP_WAIT CreateThreadpoolWait(wait_callback* callback, void* context, void*) {
  const auto over = std::make_shared<std::atomic<bool>>(false);
  return stand_in::hand_out(
      [=](PTP_CALLBACK_INSTANCE instance, const outcome& told, PTP_WAIT wait) {
        if (!over->exchange(true))
          callback(instance, context, wait, told.result);
      });
}

// Once the event or the time is waited for, the callback may close the wait and the event.
void SetThreadpoolWait(PTP_WAIT wait, HANDLE handle, const FILETIME* timeout) {
  const auto object = wait->shared_from_this();
  {
    auto& event = object_of(handle);
    const std::lock_guard guard(event.lock);
    if (event.is_set)
      return thread_pool::instance().submit(*object, {WAIT_OBJECT_0});
    event.waits.push_back(object);
  }
  if (timeout != nullptr)
    thread_pool::instance().submit(*object, {WAIT_TIMEOUT}, *timeout);
}

void CloseThreadpoolWait(PTP_WAIT wait) {
  CloseThreadpoolTimer(wait);
}

BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE) {
  object_of(handle).skips_on_success = true;
  return TRUE;
}

PTP_IO CreateThreadpoolIo(HANDLE handle, io_callback* callback, void* context, void*) {
  SetLastError(ERROR_INVALID_HANDLE);
  if (handle == INVALID_HANDLE_VALUE)
    return nullptr;
  const PTP_IO created = stand_in::hand_out([=](PTP_CALLBACK_INSTANCE instance, const outcome& told,
                                                PTP_IO io) {
    stand_in::end_call(*io);
    callback(instance, context, told.overlapped, told.result, told.overlapped->InternalHigh, io);
  });
  object_of(handle).binding = created->self;
  return created;
}

void StartThreadpoolIo(PTP_IO io) {
  ++io->started;
}

void CancelThreadpoolIo(PTP_IO io) {
  stand_in::end_call(*io);
}

void CloseThreadpoolIo(PTP_IO io) {
  if (io->started != 0)
    std::abort();  // a call was neither completed nor cancelled
  io->self.reset();
}

BOOL ReadFile(HANDLE handle, void* buffer, DWORD, DWORD*, OVERLAPPED* overlapped) {
  const DWORD error = object_of(handle).read(static_cast<char*>(buffer), overlapped);
  SetLastError(error);
  return error == ERROR_SUCCESS;
}

BOOL WriteFile(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

BOOL CancelIoEx(HANDLE handle, OVERLAPPED* overlapped) {
  SetLastError(ERROR_NOT_FOUND);
  return object_of(handle).cancel(overlapped);
}
