// Security descriptors for objects that other accounts open.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace tether {

// Owns an immutable descriptor. Any thread may create any number of objects with it.
class security_descriptor {
 public:
  // Uses the text unchanged. Throws hresult_error with the conversion's error.
  [[nodiscard]] static security_descriptor from_sddl(const std::wstring& sddl);

  // Grants `access` to Everyone and nothing to anyone else. Throws hresult_error.
  [[nodiscard]] static security_descriptor everyone(DWORD access);

  // Not inheritable. Valid until this descriptor is moved from or destroyed.
  [[nodiscard]] SECURITY_ATTRIBUTES attributes() const noexcept;

 private:
  explicit security_descriptor(std::vector<std::byte> self_relative) noexcept;

  std::vector<std::byte> self_relative_;
};

}  // namespace tether
