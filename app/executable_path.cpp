#include "app/executable_path.h"

#include "platform/win32.h"

namespace tarnwheel {

std::wstring executable_path() {
  wchar_t path[MAX_PATH] = {};
  const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length == MAX_PATH)
    return {};
  return {path, length};
}

}  // namespace tarnwheel
