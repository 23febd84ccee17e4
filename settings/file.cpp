#include "settings/file.h"

#include <utility>

#include "settings/stream_impl.h"

namespace Tamrin::setman {

stored_value file::load() const {
  const std::lock_guard lock(mutex_);
  return value_;
}

void file::store(stored_value value) noexcept {
  const std::lock_guard lock(mutex_);
  std::swap(value_, value);
}

unique_stream file::open_stream(DWORD mode) {
  switch (mode) {
    case STGM_READ:
    case STGM_READWRITE:
      return unique_stream(new StreamImpl(shared_from_this(), load().bytes, mode));
    case STGM_WRITE:
      return unique_stream(new StreamImpl(shared_from_this(), {}, mode));
    default:
      return {};
  }
}

}  // namespace Tamrin::setman
