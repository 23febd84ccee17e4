// A stream over a handle that is opened for overlapped I/O.
#pragma once

#include <algorithm>
#include <memory>
#include <utility>

#include "async/errors.h"
#include "async/overlapped_file.h"
#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

// Owner is as for overlapped_handle. Read and Write are the functors that start the calls.
template <class Owner, class Read = ostra::read_file, class Write = ostra::write_file>
class handle_stream : public byte_stream,
                      public std::enable_shared_from_this<handle_stream<Owner, Read, Write>> {
 public:
  explicit handle_stream(Owner handle) { handle_.set(std::move(handle)); }

  ostra::future<std::size_t> read(std::span<std::byte> buffer) override {
    const auto self = this->shared_from_this();
    const auto size = static_cast<DWORD>(std::min(buffer.size(), kMaxCall));
    auto call = handle_.call(Read{buffer.data(), size});
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
      const auto size = static_cast<DWORD>(std::min(bytes.size(), kMaxCall));
      auto call = handle_.call(Write{bytes.data(), size});
      const DWORD written = co_await call;
      bytes = bytes.subspan(written);
    }
  }

  void cancel() noexcept override { handle_.cancel(); }

 protected:
  [[nodiscard]] const Owner& owner() const noexcept { return handle_.owner(); }
  [[nodiscard]] const ostra::overlapped_handle<Owner>& handle() const noexcept { return handle_; }

 private:
  static constexpr std::size_t kMaxCall = 64 * 1024;

  ostra::overlapped_handle<Owner> handle_;
};

}  // namespace tarnwheel::client
