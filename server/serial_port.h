// One open COM port and the calls on it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "async/future.h"
#include "async/overlapped.h"
#include "async/srw_lock.h"
#include "platform/unique_resource.h"

namespace tarnwheel {

// Shared by the session and by each call's coroutine, which holds the port until its completion has
// arrived, so the binding outlives every completion.
//
// Any thread may call close() at any time. A call starts under the shared lock, which close() takes
// exclusively: a call either starts first and is then cancelled, or finds the port closed; none
// reaches a handle that has been closed and perhaps reused. close() waits for no completion. A
// driver that never delivers one keeps that call's coroutine and this object, but not the device. A
// driver that does not return from a call, or from the closing of the device, keeps the calling
// thread and the device.
class serial_port {
 public:
  // Opens COM`number` exclusively and binds it to the thread pool. Returns S_OK or the HRESULT of
  // the open; throws hresult_error when the open port cannot be bound.
  [[nodiscard]] HRESULT open(std::uint32_t number);

  // Cancels pending calls and closes the device. Later calls fail. Idempotent.
  void close() noexcept;

  // True while there are calls whose completion has not arrived.
  [[nodiscard]] bool has_pending_calls() const noexcept { return pending_ != 0; }

  // Each gives the number of bytes transferred, or throws hresult_error with the device's error.
  // The buffers and this object must live until the future completes.
  ostra::future<DWORD> control(std::uint32_t code, std::span<const std::byte> input,
                               std::span<std::byte> output);
  ostra::future<DWORD> write(std::span<const std::byte> data);
  ostra::future<DWORD> read(std::span<std::byte> buffer);

 private:
  template <class Call>
  ostra::future<DWORD> perform(Call call);

  // Constant once open.
  ostra::io_binding binding_;

  std::atomic<unsigned> pending_ = 0;

  ostra::srw_lock lock_;
  Tamrin::unique_file device_;  // guarded by lock_
};

}  // namespace tarnwheel
