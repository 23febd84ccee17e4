// The security descriptors that guard what is opened to others.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace tether {

// Owns a descriptor, which never changes: any number of objects may be created with it, by any
// thread.
class security_descriptor {
 public:
  // Takes the text as it stands. Throws hresult_error with the conversion's error.
  [[nodiscard]] static security_descriptor from_sddl(const std::wstring& sddl);

  // Grants `access` to Everyone and nothing to anybody else. Throws hresult_error.
  [[nodiscard]] static security_descriptor everyone(DWORD access);

  // Not inheritable. Valid until this descriptor is moved from or destroyed.
  [[nodiscard]] SECURITY_ATTRIBUTES attributes() const noexcept;

 private:
  explicit security_descriptor(std::vector<std::byte> self_relative) noexcept;

  std::vector<std::byte> self_relative_;
};

}  // namespace tether
