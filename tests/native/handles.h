// What a handle stands for: a device for overlapped reads whose other end is the test.
#pragma once

#include <cstdlib>
#include <optional>

#include "thread_pool.h"

// How a read ends: an NTSTATUS and the Win32 error that it maps to. One of success moves one 'x'.
struct device_answer {
  ULONG status = 0;
  DWORD error = ERROR_SUCCESS;

  [[nodiscard]] ULONG severity() const { return status >> 30; }
};

// The handle is its address, so the address sanitizer sees the use of a closed one.
struct test_device {
  // Answers the read that waits, or else the next one.
  void send(device_answer sent = {}) {
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
    buffer = static_cast<char*>(to);
    if (!next)
      return ERROR_IO_PENDING;
    const auto sent = *std::exchange(next, std::nullopt);
    if (sent.severity() == 3)
      read = nullptr;
    else
      end_read(sent, sent.error != ERROR_SUCCESS || !skips_on_success);
    return sent.error;
  }

  void end_read(device_answer sent, bool completes) {
    OVERLAPPED* const call = std::exchange(read, nullptr);
    call->Internal = sent.status;
    if (sent.severity() < 2) {
      call->InternalHigh = 1;
      *buffer = 'x';
    }
    if (completes)
      binding->run([end = complete, sent, call] { end(sent.error, call); });
  }

  // Constant once calls are made.
  bool skips_on_success = false;
  std::shared_ptr<TP_OBJECT> binding;
  std::function<void(DWORD error, OVERLAPPED*)> complete;

  // Guarded by lock.
  std::mutex lock;
  std::optional<device_answer> next;
  OVERLAPPED* read = nullptr;
  char* buffer = nullptr;
};

inline test_device& device_of(HANDLE handle) {
  return *static_cast<test_device*>(handle);
}

inline BOOL CloseHandle(HANDLE handle) noexcept {
  delete &device_of(handle);
  return TRUE;
}

// Nothing that runs here waits for a handle.
inline PTP_WAIT CreateThreadpoolWait(auto, void*, void*) {
  return nullptr;
}
inline void SetThreadpoolWait(PTP_WAIT, HANDLE, const FILETIME*) {}
inline constexpr auto CloseThreadpoolWait = &CloseThreadpoolTimer;

inline BOOL SetFileCompletionNotificationModes(HANDLE handle, BYTE) {
  return device_of(handle).skips_on_success = true;
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
  const PTP_IO io = TP_OBJECT::hand_out();
  device_of(handle).binding = io->self;
  device_of(handle).complete = [=](DWORD error, OVERLAPPED* call) {
    CancelThreadpoolIo(io);
    callback(nullptr, context, call, error, call->InternalHigh, io);
  };
  return io;
}

inline void CloseThreadpoolIo(PTP_IO io) {
  if (io->started != 0)
    std::abort();  // a call was neither completed nor cancelled
  io->self.reset();
}

inline BOOL ReadFile(HANDLE handle, void* buffer, DWORD, DWORD*, OVERLAPPED* call) {
  SetLastError(device_of(handle).begin_read(buffer, call));
  return GetLastError() == ERROR_SUCCESS;
}

inline BOOL WriteFile(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) {
  std::abort();  // nothing here writes
}

inline BOOL CancelIoEx(HANDLE handle, OVERLAPPED* call) {
  auto& device = device_of(handle);
  const std::lock_guard guard(device.lock);
  if (device.read == call)
    device.end_read({0xC0000120, ERROR_OPERATION_ABORTED}, true);
  return TRUE;
}
