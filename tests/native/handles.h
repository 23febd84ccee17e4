// What a handle stands for: an event, which stays set, or a device for overlapped reads whose other
// end is the test.
#pragma once

#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include "system.h"
#include "thread_pool.h"

namespace stand_in {

// How a read ends: an NTSTATUS and the Win32 error that it maps to. One of success moves one 'x'.
struct answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;
};

// The handle is its address, so the address sanitizer sees the use of a closed one.
struct kernel_object {
  // A read takes the oldest answer, or waits for the next; one read waits at a time.
  void send(answer sent = {}) {
    const std::lock_guard guard(lock);
    if (waiting != nullptr)
      complete(sent, std::exchange(waiting, nullptr), waiting_buffer);
    else
      answers.push_back(sent);
  }

  // A call that fails at once with an error (severity 3) is not accepted: its OVERLAPPED stays
  // pending, and no completion comes. One that ends at once with a warning has its completion.
  DWORD read(void* buffer, OVERLAPPED* call) {
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

  bool cancel(const OVERLAPPED* call) {
    const std::lock_guard guard(lock);
    if (waiting != call)
      return false;
    complete({0xC0000120, ERROR_OPERATION_ABORTED}, std::exchange(waiting, nullptr), nullptr);
    return true;
  }

  static void finish(const answer& sent, OVERLAPPED* call, void* buffer) {
    call->Internal = sent.status;
    call->InternalHigh = sent.status >> 30 < 2 ? 1 : 0;
    if (call->InternalHigh != 0)
      *static_cast<char*>(buffer) = 'x';
  }
  void complete(const answer& sent, OVERLAPPED* call, void* buffer) {
    finish(sent, call, buffer);
    thread_pool::instance().submit(*binding, sent.error, call);
  }

  bool skips_on_success = false;       // constant once calls are made
  std::shared_ptr<TP_OBJECT> binding;  // likewise

  // Guarded by lock.
  std::mutex lock;
  bool is_set = false;
  std::vector<std::shared_ptr<TP_OBJECT>> waits;
  std::deque<answer> answers;
  OVERLAPPED* waiting = nullptr;
  void* waiting_buffer = nullptr;
};

inline kernel_object& object_of(HANDLE handle) {
  return *static_cast<kernel_object*>(handle);
}

}  // namespace stand_in

inline BOOL CloseHandle(HANDLE handle) noexcept {
  delete &stand_in::object_of(handle);
  return TRUE;
}

inline HANDLE CreateEventW(void*, BOOL, BOOL, const wchar_t*) {
  return new stand_in::kernel_object;
}

inline void SetEvent(HANDLE handle) {
  auto& event = stand_in::object_of(handle);
  const std::lock_guard guard(event.lock);
  event.is_set = true;
  for (const auto& wait : std::exchange(event.waits, {}))
    stand_in::thread_pool::instance().submit(*wait, WAIT_OBJECT_0);
}

inline PTP_WAIT CreateThreadpoolWait(void (*callback)(PTP_CALLBACK_INSTANCE, void*, PTP_WAIT,
                                                      DWORD),
                                     void* context, void*) {
  const auto over = std::make_shared<std::atomic<bool>>(false);
  return stand_in::hand_out([=](auto instance, DWORD result, auto, PTP_WAIT wait) {
    if (!over->exchange(true))
      callback(instance, context, wait, result);
  });
}

// Once the event or the time is waited for, the callback may close the wait and the event.
inline void SetThreadpoolWait(PTP_WAIT wait, HANDLE handle, const FILETIME* timeout) {
  const auto object = wait->shared_from_this();
  {
    auto& event = stand_in::object_of(handle);
    const std::lock_guard guard(event.lock);
    if (event.is_set)
      return stand_in::thread_pool::instance().submit(*object, WAIT_OBJECT_0);
    event.waits.push_back(object);
  }
  if (timeout != nullptr)
    stand_in::thread_pool::instance().submit_at(*timeout, *object, WAIT_TIMEOUT);
}
inline constexpr auto CloseThreadpoolWait = &CloseThreadpoolTimer;

inline BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE) {
  stand_in::object_of(handle).skips_on_success = true;
  return TRUE;
}

// A call has ended, or was not accepted.
inline void CancelThreadpoolIo(PTP_IO io) {
  if (io->started.fetch_sub(1) <= 0)
    std::abort();  // without a StartThreadpoolIo
}

inline PTP_IO CreateThreadpoolIo(HANDLE handle,
                                 void (*callback)(PTP_CALLBACK_INSTANCE, void*, void* overlapped,
                                                  ULONG result, ULONG_PTR bytes, PTP_IO),
                                 void* context, void*) {
  SetLastError(ERROR_INVALID_HANDLE);
  if (handle == INVALID_HANDLE_VALUE)
    return nullptr;
  const PTP_IO created =
      stand_in::hand_out([=](auto instance, DWORD result, OVERLAPPED* call, PTP_IO io) {
        CancelThreadpoolIo(io);
        callback(instance, context, call, result, call->InternalHigh, io);
      });
  stand_in::object_of(handle).binding = created->self;
  return created;
}

inline void StartThreadpoolIo(PTP_IO io) {
  ++io->started;
}

inline void CloseThreadpoolIo(PTP_IO io) {
  if (io->started != 0)
    std::abort();  // a call was neither completed nor cancelled
  io->self.reset();
}

inline BOOL ReadFile(HANDLE handle, void* buffer, DWORD, DWORD*, OVERLAPPED* call) {
  SetLastError(stand_in::object_of(handle).read(buffer, call));
  return GetLastError() == ERROR_SUCCESS;
}

inline BOOL WriteFile(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

inline BOOL CancelIoEx(HANDLE handle, OVERLAPPED* call) {
  return stand_in::object_of(handle).cancel(call);
}
