// Case-insensitive ordering and equality of names.
#pragma once

#include <string_view>

#include "platform/win32.h"

namespace Tamrin {

// Compares as the system compares names of files, keys and computers. Returns CSTR_LESS_THAN,
// CSTR_EQUAL or CSTR_GREATER_THAN.
[[nodiscard]] inline int compare_names(std::wstring_view left, std::wstring_view right) noexcept {
  return ::CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE);
}

struct name_less {
  [[nodiscard]] bool operator()(std::wstring_view left, std::wstring_view right) const noexcept {
    return compare_names(left, right) == CSTR_LESS_THAN;
  }
};

}  // namespace Tamrin
