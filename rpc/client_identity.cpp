#include "rpc/client_identity.h"

#include <cwchar>
#include <exception>
#include <memory>
#include <utility>

#include "async/errors.h"

namespace tether {
namespace {

using ostra::details::check_bool;
using ostra::details::throw_hresult;
using ostra::details::throw_last_error;

static_assert(SECURITY_MAX_SID_SIZE == 68);

constexpr DWORD kStackBufferSize = 1024;
constexpr std::size_t kUsualNameLength = 32;

DWORD token_user_size(HANDLE token) {
  DWORD size = 0;
  if (!::GetTokenInformation(token, TokenUser, nullptr, 0, &size) &&
      ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    throw_last_error();
  }
  return size;
}

// Looks the names up into the strings, up to their current sizes. On success trims the strings to
// the names. Returns false when a string is too short, after growing both to the sizes that the
// system asks for.
bool look_up_into(PSID sid, std::wstring& account, std::wstring& domain) {
  auto account_size = static_cast<DWORD>(account.size());
  auto domain_size = static_cast<DWORD>(domain.size());
  SID_NAME_USE use = SidTypeUnknown;
  if (::LookupAccountSidW(nullptr, sid, account.data(), &account_size, domain.data(), &domain_size,
                          &use)) {
    account.resize(std::wcslen(account.c_str()));
    domain.resize(std::wcslen(domain.c_str()));
    return true;
  }
  if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    throw_last_error();
  // Wine omits the terminators from the sizes that it reports.
  account.resize(account_size + std::size_t{1});
  domain.resize(domain_size + std::size_t{1});
  return false;
}

}  // namespace

void revert_to_self() noexcept {
  if (!::RevertToSelf())
    std::terminate();
}

CToken& CToken::operator=(CToken&& other) noexcept {
  store(std::move(other.token_));
  revert_ = std::move(other.revert_);
  return *this;
}

CToken::~CToken() {
  CToken::close();
}

void CToken::store(Tamrin::unique_handle token) noexcept {
  close();
  token_ = std::move(token);
}

void CToken::close() noexcept {
  token_.reset();
}

void CToken::keep_impersonating(CRevertToSelf revert) noexcept {
  revert_ = std::move(revert);
}

CToken open_client_token(HANDLE pipe, DWORD access, bool keep_impersonating, bool open_as_self) {
  CToken result;
  // This replaces any impersonation token that the thread already has.
  if (!::ImpersonateNamedPipeClient(pipe))
    return result;
  HANDLE token = nullptr;
  if (!::OpenThreadToken(::GetCurrentThread(), access, open_as_self, &token))
    return result;
  CRevertToSelf revert(true);
  result.store(Tamrin::unique_handle(token));
  if (keep_impersonating)
    result.keep_impersonating(std::move(revert));
  return result;
}

CSid::CSid(PSID sid) {
  if (!::IsValidSid(sid) || ::GetLengthSid(sid) > bytes_.size())
    throw_hresult(E_INVALIDARG);
  check_bool(::CopySid(static_cast<DWORD>(bytes_.size()), bytes_.data(), sid));
}

CSid CSid::user_of(HANDLE token) {
  const DWORD size = token_user_size(token);
  alignas(TOKEN_USER) std::byte stack_buffer[kStackBufferSize];
  std::unique_ptr<std::byte[]> heap_buffer;
  if (size > sizeof(stack_buffer))
    heap_buffer = std::make_unique<std::byte[]>(size);
  std::byte* const buffer = heap_buffer ? heap_buffer.get() : stack_buffer;
  DWORD written = 0;
  check_bool(::GetTokenInformation(token, TokenUser, buffer, size, &written));
  return CSid(reinterpret_cast<const TOKEN_USER*>(buffer)->User.Sid);
}

void CSid::look_up() {
  std::wstring account(kUsualNameLength, L'\0');
  std::wstring domain(kUsualNameLength, L'\0');
  if (!look_up_into(bytes_.data(), account, domain) &&
      !look_up_into(bytes_.data(), account, domain)) {
    ostra::details::throw_win32(ERROR_INSUFFICIENT_BUFFER);
  }
  account_ = std::move(account);
  domain_ = std::move(domain);
}

std::wstring CSid::display_name() const {
  return domain_.empty() ? account_ : domain_ + L"\\" + account_;
}

std::optional<std::wstring> account_name(const CToken& token) {
  if (!token)
    return std::nullopt;
  CSid user = CSid::user_of(token.get());
  user.look_up();
  return user.display_name();
}

}  // namespace tether
