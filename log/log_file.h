// The file of the log, UTF-16 with a byte order mark.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "async/future.h"
#include "async/overlapped_file.h"

namespace logging {

// An open file that is bound to the thread pool. Owned by the logger. One write at a time, which
// must complete before the object is destroyed.
class log_file {
 public:
  // Opens an existing file for appending, or creates one that begins with the mark FF FE. Null when
  // the file cannot be opened. Throws hresult_error when it cannot be bound to the thread pool (as
  // some devices cannot), or when the mark cannot be written.
  [[nodiscard]] static std::unique_ptr<log_file> open(std::wstring_view path);

  // `text` must live until the future completes; a failed write is an hresult_error there. Throws
  // std::bad_alloc.
  [[nodiscard]] ostra::future<void> append(std::wstring_view text);

 private:
  log_file() = default;

  ostra::overlapped_file file_;
  std::uint64_t offset_ = 0;  // bytes
};

}  // namespace logging
