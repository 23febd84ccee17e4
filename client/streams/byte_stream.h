// A connection with a program that uses a remote port, and the listener that accepts such
// connections.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include "async/future.h"

namespace tarnwheel::client {

// One read and one write may be in flight at a time; each keeps the stream alive. Futures fail with
// hresult_error. cancel() may be called on any thread and ends both, and every later call.
class byte_stream {
 public:
  // Completes with the number of bytes, 0 at the end of input. The buffer must live until then.
  virtual ostra::future<std::size_t> read(std::span<std::byte> buffer) = 0;

  // Completes when everything is written. The bytes must live until then.
  virtual ostra::future<void> write(std::span<const std::byte> bytes) = 0;

  // Tells the other end that nothing more will be written.
  virtual void finish() noexcept = 0;

  virtual void cancel() noexcept = 0;

  // The other end's name, for messages.
  [[nodiscard]] virtual std::wstring peer() const = 0;

  virtual ~byte_stream() = default;
};

// Listens from construction on. cancel() may be called on any thread and makes accept() fail with
// operation_cancelled. After any other hresult_error, such as for a program that disconnected while
// it was connecting, accept() may be called again.
class stream_listener {
 public:
  // Completes with the next program's stream. One call at a time, which must complete before the
  // listener is destroyed.
  virtual ostra::future<std::shared_ptr<byte_stream>> accept() = 0;

  virtual void cancel() noexcept = 0;

  // The address for programs to connect to.
  [[nodiscard]] virtual std::wstring address() const = 0;

  virtual ~stream_listener() = default;
};

}  // namespace tarnwheel::client
