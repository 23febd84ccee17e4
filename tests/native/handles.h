// What a handle stands for: a device for overlapped calls, which the test answers.
#pragma once

#include <cstdlib>

#include "thread_pool.h"

// How a call ends: an NTSTATUS and the Win32 error that it maps to.
struct device_answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;
};

// One call at a time. The handle is its address, and so is what binds it to the thread pool.
struct test_device {
  // The call pends until it is answered; returns what the call does.
  DWORD begin(OVERLAPPED* call) {
    call->Internal = 0x103;  // STATUS_PENDING
    pending = call;
    return ERROR_IO_PENDING;
  }

  // Ends the call that pends, if any.
  void send(device_answer answer) {
    OVERLAPPED* const call = pending.exchange(nullptr);
    if (call == nullptr)
      return;
    call->Internal = answer.status;
    std::thread(on_completion, call, answer.error).detach();
  }

  // A call that has its answer at once; returns what the call does. One that fails with an error
  // (severity 3) is not accepted: its OVERLAPPED stays pending, and no completion comes. One that
  // ends with a warning has its completion.
  DWORD answer_at_once(OVERLAPPED* call, device_answer answer) {
    begin(call);
    const ULONG severity = answer.status >> 30;
    if (severity == 3 || (severity == 0 && skips_on_success))
      pending = nullptr;
    send(answer);
    return severity == 0 ? ERROR_SUCCESS : answer.error;
  }

  bool skips_on_success = false;
  std::function<void(OVERLAPPED*, DWORD error)> on_completion;
  std::atomic<int> started = 0;  // calls whose completion is still to come
  std::atomic<OVERLAPPED*> pending = nullptr;
};

inline BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE) {
  return static_cast<test_device*>(handle)->skips_on_success = true;
}

using PTP_IO = test_device*;
inline void StartThreadpoolIo(PTP_IO device) {
  ++device->started;
}
// A call has ended, or was not accepted.
inline void CancelThreadpoolIo(PTP_IO device) {
  if (device->started.fetch_sub(1) <= 0)
    std::abort();  // without a StartThreadpoolIo
}

inline PTP_IO CreateThreadpoolIo(HANDLE handle, auto callback, void* context, void*) {
  const PTP_IO device = static_cast<test_device*>(handle);
  device->on_completion = [=](OVERLAPPED* call, DWORD error) {
    CancelThreadpoolIo(device);
    callback(nullptr, context, call, error, call->InternalHigh, device);
  };
  return device;
}

inline void CloseThreadpoolIo(PTP_IO device) {
  if (device->started != 0)
    std::abort();  // a call was neither completed nor cancelled
}

inline void CancelIoEx(HANDLE handle, OVERLAPPED*) {
  static_cast<test_device*>(handle)->send({0xC0000120, ERROR_OPERATION_ABORTED});
}
