#include "app/version_info.h"

#include <cstddef>
#include <cstring>
#include <span>

#include "platform/win32.h"

namespace tarnwheel {
namespace {

// The resource begins with three 16-bit fields and the null-terminated key "VS_VERSION_INFO"; the
// fixed part of the version follows at the next multiple of four bytes.
constexpr std::size_t kFixedPart = 40;

// Read straight from the program's image: version.dll, which has functions for that, is not among
// the libraries that Windows loads only from its own folder.
std::span<const std::byte> version_resource() noexcept {
  const HRSRC resource =
      ::FindResourceW(nullptr, MAKEINTRESOURCEW(VS_VERSION_INFO), MAKEINTRESOURCEW(16));
  if (resource == nullptr)
    return {};
  const HGLOBAL loaded = ::LoadResource(nullptr, resource);
  const void* const bytes = loaded == nullptr ? nullptr : ::LockResource(loaded);
  if (bytes == nullptr)
    return {};
  return {static_cast<const std::byte*>(bytes), ::SizeofResource(nullptr, resource)};
}

}  // namespace

product_version read_product_version() {
  const auto resource = version_resource();
  VS_FIXEDFILEINFO info = {};
  if (resource.size() < kFixedPart + sizeof info)
    return {};
  std::memcpy(&info, resource.data() + kFixedPart, sizeof info);
  if (info.dwSignature != VS_FFI_SIGNATURE)
    return {};
  return {HIWORD(info.dwProductVersionMS), LOWORD(info.dwProductVersionMS),
          HIWORD(info.dwProductVersionLS), LOWORD(info.dwProductVersionLS)};
}

}  // namespace tarnwheel
