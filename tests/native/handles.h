// What a handle stands for: a device for overlapped reads whose other end is the test.
#pragma once

#include <cstdlib>
#include <optional>

#include "thread_pool.h"

namespace stand_in {

// How a read ends: an NTSTATUS and the Win32 error that it maps to. One of success moves one 'x'.
struct answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;
};

// The handle is its address, so the address sanitizer sees the use of a closed one.
struct kernel_object {
  // Answers the read that waits, or else the next one.
  void send(answer sent = {}) {
    const std::lock_guard guard(lock);
    if (read != nullptr)
      end_read(sent, true);
    else
      next = sent;
  }

  // A call that fails at once with an error (severity 3) is not accepted: its OVERLAPPED stays
  // pending, and no completion comes. One that ends at once with a warning has its completion.
  DWORD begin_read(void* to, OVERLAPPED* call) {
    const std::lock_guard guard(lock);
    call->Internal = 0x103;  // STATUS_PENDING
    read = call;
    buffer = to;
    if (!next)
      return ERROR_IO_PENDING;
    const answer sent = *std::exchange(next, std::nullopt);
    if (sent.status >> 30 == 3)
      read = nullptr;
    else
      end_read(sent, sent.error != ERROR_SUCCESS || !skips_on_success);
    return sent.error;
  }

  void end_read(const answer& sent, bool completes) {
    OVERLAPPED* const call = std::exchange(read, nullptr);
    call->Internal = sent.status;
    call->InternalHigh = sent.status >> 30 < 2 ? 1 : 0;
    if (call->InternalHigh != 0)
      *static_cast<char*>(buffer) = 'x';
    if (completes)
      binding->submit(sent.error, call);
  }

  bool skips_on_success = false;       // constant once calls are made
  std::shared_ptr<TP_OBJECT> binding;  // likewise

  // Guarded by lock.
  std::mutex lock;
  std::optional<answer> next;
  OVERLAPPED* read = nullptr;
  void* buffer = nullptr;
};

inline kernel_object& object_of(HANDLE handle) {
  return *static_cast<kernel_object*>(handle);
}

}  // namespace stand_in

inline BOOL CloseHandle(HANDLE handle) noexcept {
  delete &stand_in::object_of(handle);
  return TRUE;
}

// Nothing that runs here waits for a handle.
inline PTP_WAIT CreateThreadpoolWait(auto, void*, void*) {
  return nullptr;
}
inline void SetThreadpoolWait(PTP_WAIT, HANDLE, const FILETIME*) {}
inline constexpr auto CloseThreadpoolWait = &CloseThreadpoolTimer;

inline BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE) {
  return stand_in::object_of(handle).skips_on_success = true;
}

inline void StartThreadpoolIo(PTP_IO io) {
  ++io->started;
}

// A call has ended, or was not accepted.
inline void CancelThreadpoolIo(PTP_IO io) {
  if (io->started.fetch_sub(1) <= 0)
    std::abort();  // without a StartThreadpoolIo
}

inline PTP_IO CreateThreadpoolIo(HANDLE handle, auto callback, void* context, void*) {
  const PTP_IO io =
      stand_in::hand_out([=](auto instance, DWORD result, OVERLAPPED* call, PTP_IO object) {
        CancelThreadpoolIo(object);
        callback(instance, context, call, result, call->InternalHigh, object);
      });
  stand_in::object_of(handle).binding = io->self;
  return io;
}

inline void CloseThreadpoolIo(PTP_IO io) {
  if (io->started != 0)
    std::abort();  // a call was neither completed nor cancelled
  io->self.reset();
}

inline BOOL ReadFile(HANDLE handle, void* buffer, DWORD, DWORD*, OVERLAPPED* call) {
  SetLastError(stand_in::object_of(handle).begin_read(buffer, call));
  return GetLastError() == ERROR_SUCCESS;
}

inline BOOL WriteFile(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) {
  std::abort();  // nothing here writes
}

inline BOOL CancelIoEx(HANDLE handle, OVERLAPPED* call) {
  auto& device = stand_in::object_of(handle);
  const std::lock_guard guard(device.lock);
  if (device.read != call)
    return FALSE;
  device.end_read({0xC0000120, ERROR_OPERATION_ABORTED}, true);
  return TRUE;
}
