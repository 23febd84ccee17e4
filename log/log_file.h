// The file of the log, UTF-16 with a byte order mark.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "async/future.h"
#include "async/overlapped_file.h"

namespace logging {

// An open file that can be written through the thread pool: what cannot is never made. Owned by the
// logger. One write at a time, which ends before the object does.
class log_file {
 public:
  // Continues the file or makes a new one, which begins with the mark FF FE. Null when the file
  // cannot be opened. Throws hresult_error when it cannot be written through the thread pool (a
  // device may be such a file), or the mark cannot.
  [[nodiscard]] static std::unique_ptr<log_file> open(std::wstring_view path);

  // `text` must live until the future completes, which fails with hresult_error. Throws
  // std::bad_alloc.
  [[nodiscard]] ostra::future<void> append(std::wstring_view text);

 private:
  log_file() = default;

  ostra::overlapped_file file_;
  std::uint64_t offset_ = 0;  // bytes
};

}  // namespace logging
