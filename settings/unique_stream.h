// Owner of one reference to a COM stream.
#pragma once

#include "platform/unique_resource.h"
#include "platform/win32.h"

// After win32.h.
#include <objidl.h>

namespace Tamrin::setman {

struct stream_traits {
  using pointer = IStream*;
  static pointer invalid() noexcept { return nullptr; }
  static void close(pointer stream) noexcept { stream->Release(); }
};
using unique_stream = unique_resource<stream_traits>;

}  // namespace Tamrin::setman
