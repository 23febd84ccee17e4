// A value of the in-memory settings tree.
#pragma once

#include <memory>
#include <mutex>

#include "settings/stored_value.h"
#include "settings/unique_stream.h"

namespace Tamrin::setman {

// Owned by its directory and by the streams that are open on it. Has its own lock: any thread may
// read and replace the value.
class file : public std::enable_shared_from_this<file> {
 public:
  [[nodiscard]] stored_value load() const;
  void store(stored_value value) noexcept;

  // A new stream over a copy of the current bytes; see abstract_folder::open_stream. It keeps the
  // file alive. Null for a mode other than the three named there.
  [[nodiscard]] unique_stream open_stream(DWORD mode);

 private:
  // Guarded by mutex_.
  mutable std::mutex mutex_;
  stored_value value_;
};

}  // namespace Tamrin::setman
