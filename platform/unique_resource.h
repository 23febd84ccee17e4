// Owning wrappers for Windows resources: kernel handles, thread-pool objects, registry keys and the
// like.
#pragma once

#include <utility>

#include "platform/win32.h"

namespace Tamrin {

// Owns one resource described by Traits: the type `pointer`, the value `invalid()` that stands for
// "none", and `close(pointer)`. Not synchronised. Never throws.
template <class Traits>
class unique_resource {
 public:
  using pointer = typename Traits::pointer;

  unique_resource() noexcept = default;
  explicit unique_resource(pointer value) noexcept : value_(value) {}
  unique_resource(unique_resource&& other) noexcept : value_(other.release()) {}
  unique_resource& operator=(unique_resource&& other) noexcept {
    reset(other.release());
    return *this;
  }
  unique_resource(const unique_resource&) = delete;
  unique_resource& operator=(const unique_resource&) = delete;
  ~unique_resource() { reset(); }

  [[nodiscard]] pointer get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ != Traits::invalid(); }

  [[nodiscard]] pointer release() noexcept { return std::exchange(value_, Traits::invalid()); }

  // Closes the current resource, if any, and takes ownership of `value`. Resetting to the value
  // already held is a no-op, so self-move keeps the resource.
  void reset(pointer value = Traits::invalid()) noexcept {
    const pointer old = std::exchange(value_, value);
    if (old != Traits::invalid() && old != value)
      Traits::close(old);
  }

 private:
  pointer value_ = Traits::invalid();
};

// Handles from CreateFileW, CreateNamedPipeW and CreateMailslotW: INVALID_HANDLE_VALUE on failure.
struct file_traits {
  using pointer = HANDLE;
  static pointer invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(pointer handle) noexcept { ::CloseHandle(handle); }
};
using unique_file = unique_resource<file_traits>;

// All other kernel handles (events, tokens, processes): null on failure.
struct handle_traits {
  using pointer = HANDLE;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer handle) noexcept { ::CloseHandle(handle); }
};
using unique_handle = unique_resource<handle_traits>;

// Memory allocated with LocalAlloc by a Windows function.
struct local_memory_traits {
  using pointer = void*;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer memory) noexcept { ::LocalFree(memory); }
};
using unique_local_memory = unique_resource<local_memory_traits>;

}  // namespace Tamrin
