// A stream over a handle that takes overlapped calls.
#pragma once

#include <algorithm>
#include <memory>
#include <utility>

#include "async/cancellation.h"
#include "async/errors.h"
#include "async/overlapped.h"
#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// Owner is a unique_resource; Owner::get() converts to HANDLE by a cast. Read and Write start the
// calls.
template <class Owner, class Read = ostra::read_file, class Write = ostra::write_file>
class handle_stream : public byte_stream,
                      public std::enable_shared_from_this<handle_stream<Owner, Read, Write>> {
 public:
  explicit handle_stream(Owner handle) : handle_(std::move(handle)) {
    binding_.bind(to_handle(handle_), ostra::immediate_success::continues_inline);
  }

  ostra::future<std::size_t> read(std::span<std::byte> buffer) override {
    const auto self = this->shared_from_this();
    const auto size = static_cast<DWORD>(std::min(buffer.size(), kGreatestCall));
    ostra::io_call call(binding_, Read{buffer.data(), size}, token_);
    std::size_t arrived = 0;
    try {
      arrived = co_await call;
    } catch (const ostra::hresult_error& error) {
      if (error.code() != ostra::details::to_hresult(ERROR_BROKEN_PIPE))
        throw;
    }
    co_return arrived;
  }

  ostra::future<void> write(std::span<const std::byte> bytes) override {
    const auto self = this->shared_from_this();
    while (!bytes.empty()) {
      const auto size = static_cast<DWORD>(std::min(bytes.size(), kGreatestCall));
      ostra::io_call call(binding_, Write{bytes.data(), size}, token_);
      const DWORD written = co_await call;
      bytes = bytes.subspan(written);
    }
  }

  void cancel() noexcept override { cancellation_.cancel(); }

  static HANDLE to_handle(const Owner& owner) noexcept {
    return reinterpret_cast<HANDLE>(owner.get());
  }

 protected:
  [[nodiscard]] const Owner& owner() const noexcept { return handle_; }
  [[nodiscard]] const ostra::io_binding& binding() const noexcept { return binding_; }

 private:
  static constexpr std::size_t kGreatestCall = 64 * 1024;

  const Owner handle_;
  ostra::io_binding binding_;  // closed before the handle
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();
};

}  // namespace tarnwheel::client
