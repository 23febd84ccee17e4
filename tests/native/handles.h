// The device behind a handle: it takes overlapped calls, which the test answers.
#pragma once

#include <cstdlib>

#include "thread_pool.h"

// The outcome of a call: an NTSTATUS and the Win32 error that it maps to.
struct device_answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;
};

// Takes one call at a time. Its address serves as its handle and as its PTP_IO.
struct test_device {
  // Leaves the call pending until it is answered; returns the call's Win32 error.
  DWORD begin(OVERLAPPED* call) {
    call->Internal = 0x103;  // STATUS_PENDING
    pending = call;
    return ERROR_IO_PENDING;
  }

  // Completes the pending call, if any.
  void send(device_answer answer) {
    OVERLAPPED* const call = pending.exchange(nullptr);
    if (call == nullptr)
      return;
    call->Internal = answer.status;
    std::thread(on_completion, call, answer.error).detach();
  }

  // Answers the call at once; returns the call's Win32 error. A call that fails with an error
  // (severity 3) is not accepted: its OVERLAPPED stays pending, and no completion comes. One that
  // ends with a warning gets its completion.
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
// Balances StartThreadpoolIo for a call that has completed or was not accepted.
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
