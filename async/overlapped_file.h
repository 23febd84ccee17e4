// Owns a handle that takes overlapped calls.
#pragma once

#include <cstdint>
#include <utility>

#include "async/cancellation.h"
#include "async/overlapped.h"
#include "platform/unique_resource.h"

namespace ostra {

// A handle, its binding to the thread pool and the cancellation of its calls. Owner is a
// unique_resource whose value converts to HANDLE by a cast. set() and link() must precede the first
// call, and all calls must have ended before this object is destroyed; cancel() may be called from
// any thread at any time.
template <class Owner>
class overlapped_handle {
 public:
  overlapped_handle() = default;

  // Closes the previous handle, takes ownership of `handle` and binds it. Throws hresult_error,
  // which leaves the new handle held but unbound.
  void set(Owner handle, immediate_success mode = immediate_success::continues_inline) {
    close();
    handle_ = std::move(handle);
    binding_.bind(get(), mode);
  }
  void close() noexcept {
    binding_ = io_binding();
    handle_.reset();
  }

  [[nodiscard]] HANDLE get() const noexcept { return reinterpret_cast<HANDLE>(handle_.get()); }
  [[nodiscard]] const Owner& owner() const noexcept { return handle_; }
  [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(handle_); }
  [[nodiscard]] bool is_bound() const noexcept { return binding_.is_bound(); }

  // One call, to be awaited. Throws operation_cancelled.
  template <class Start>
  [[nodiscard]] io_call<Start> call(Start start, std::uint64_t offset = 0) const {
    return io_call<Start>(binding_, std::move(start), token_, offset);
  }
  // The same, but cancelled by `token`.
  template <class Start>
  [[nodiscard]] io_call<Start> call(Start start, const cancellation_token& token) const {
    return io_call<Start>(binding_, std::move(start), token);
  }

  // From now on, cancelling `owner` cancels the calls.
  void link(const cancellation_source& owner) {
    cancellation_ = cancellation_source();
    token_ = cancellation_.token();
    owner.link(cancellation_);
    // The link does not pass on a cancellation that came before it.
    if (owner.is_cancelled())
      cancellation_.cancel();
  }

  // Cancels pending calls and refuses later ones.
  void cancel() const noexcept { cancellation_.cancel(); }
  [[nodiscard]] cancellation_source& cancellation() noexcept { return cancellation_; }
  [[nodiscard]] const cancellation_token& token() const noexcept { return token_; }

 private:
  Owner handle_;
  io_binding binding_;  // closed before the handle

  cancellation_source cancellation_;
  cancellation_token token_ = cancellation_.token();
};

using overlapped_file = overlapped_handle<Tamrin::unique_file>;

}  // namespace ostra
