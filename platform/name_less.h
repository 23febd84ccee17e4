// The order of names that do not depend on case.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace Tamrin {

// As the system compares names of files, keys and computers.
struct name_less {
  [[nodiscard]] bool operator()(std::wstring_view left, std::wstring_view right) const noexcept {
    return ::CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                  static_cast<int>(right.size()), TRUE) == CSTR_LESS_THAN;
  }
};

}  // namespace Tamrin
