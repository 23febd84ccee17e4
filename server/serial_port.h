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
// come, so the binding outlives every completion.
//
// close() may come at any time from any thread. A call starts under the shared lock and the closing
// takes it exclusively: a call either starts before the closing, which then cancels it, or finds
// the port closed; none ever reaches a handle that is closed and perhaps somebody else's. The
// closing waits for no completion. A driver that owes one for ever keeps that call's coroutine and
// this object, but not the device. A driver that does not return from a call, or from the closing,
// keeps the thread that made it, and the device.
class serial_port {
 public:
  // Opens COM`number` exclusively and binds it to the thread pool. Gives 0 or the HRESULT of the
  // open; throws hresult_error when the open port cannot be bound.
  [[nodiscard]] HRESULT open(std::uint32_t number);

  // Cancels what is pending and releases the device. Later calls fail. Any number of times.
  void close() noexcept;

  // Says whether there are calls whose completion has not come.
  [[nodiscard]] bool has_pending_calls() const noexcept { return pending_ != 0; }

  // Each gives the number of bytes moved and throws hresult_error with the device's error. The
  // buffers, and this object, must live until the future completes.
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
