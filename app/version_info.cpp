#include "app/version_info.h"

#include <cstring>
#include <vector>

#include "platform/win32.h"

namespace tarnwheel {
namespace {

// The block as it lies in the program, without the names and signature checks of the version
// functions, which take a file.
const void* version_block(DWORD& size) noexcept {
  const HRSRC resource =
      ::FindResourceW(nullptr, MAKEINTRESOURCEW(VS_VERSION_INFO), MAKEINTRESOURCEW(16));
  if (resource == nullptr)
    return nullptr;
  const HGLOBAL loaded = ::LoadResource(nullptr, resource);
  size = ::SizeofResource(nullptr, resource);
  return loaded == nullptr ? nullptr : ::LockResource(loaded);
}

}  // namespace

product_version read_product_version() {
  DWORD size = 0;
  const void* const block = version_block(size);
  if (block == nullptr)
    return {};
  // VerQueryValueW may write to the block, and the resource is read-only.
  std::vector<std::byte> copy(size);
  std::memcpy(copy.data(), block, size);
  void* value = nullptr;
  UINT length = 0;
  if (!::VerQueryValueW(copy.data(), L"\\", &value, &length) || length < sizeof(VS_FIXEDFILEINFO)) {
    return {};
  }
  const auto& info = *static_cast<const VS_FIXEDFILEINFO*>(value);
  return {HIWORD(info.dwProductVersionMS), LOWORD(info.dwProductVersionMS),
          HIWORD(info.dwProductVersionLS), LOWORD(info.dwProductVersionLS)};
}

}  // namespace tarnwheel
