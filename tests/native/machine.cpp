// The machine and its accounts: it has a name, and nobody can be impersonated on it.
#include <iterator>
#include <string_view>

#include "windows.h"

namespace {

constexpr std::wstring_view kComputerName = L"stand-in";

BOOL refuse() {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

}  // namespace

HANDLE GetCurrentThread() noexcept {
  return nullptr;
}

void* LocalFree(void*) noexcept {
  return nullptr;
}

BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT, wchar_t* name, DWORD* size) {
  if (*size <= kComputerName.size()) {
    *size = kComputerName.size() + 1;
    SetLastError(ERROR_MORE_DATA);
    return FALSE;
  }
  *size = kComputerName.copy(name, kComputerName.size());
  return TRUE;
}

int GetLocaleInfoEx(const wchar_t*, DWORD, wchar_t* text, int) {
  text[0] = L',';
  text[1] = L'\0';
  return 2;
}

BOOL ImpersonateNamedPipeClient(HANDLE) {
  return refuse();
}

BOOL RevertToSelf() {
  return TRUE;
}

BOOL OpenThreadToken(HANDLE, DWORD, BOOL, HANDLE*) {
  return refuse();
}

BOOL GetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) {
  return refuse();
}

BOOL LookupAccountSidW(const wchar_t*, PSID, wchar_t*, DWORD*, wchar_t*, DWORD*, SID_NAME_USE*) {
  return refuse();
}

BOOL IsValidSid(PSID) {
  return FALSE;
}

DWORD GetLengthSid(PSID) {
  return 0;
}

BOOL CopySid(DWORD, PSID, PSID) {
  return refuse();
}
