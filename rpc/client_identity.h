// The identity of a pipe's client: its access token, its SID and its account name.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "platform/unique_resource.h"
#include "platform/win32.h"

namespace tether {

// Ends the calling thread's impersonation. Terminates the process on failure, since the thread
// would otherwise continue with the client's rights.
void revert_to_self() noexcept;

struct impersonation_traits {
  using pointer = bool;
  static pointer invalid() noexcept { return false; }
  static void close(pointer) noexcept { revert_to_self(); }
};
// When true, reverts the thread that destroys it, which must be the impersonating thread.
using CRevertToSelf = Tamrin::unique_resource<impersonation_traits>;

// Owns the handle of an access token, unless it is empty, and may keep its thread impersonating for
// its lifetime. Not synchronised.
class CToken {
 public:
  CToken() noexcept = default;
  CToken(CToken&& other) noexcept = default;
  CToken& operator=(CToken&& other) noexcept;
  virtual ~CToken();

  [[nodiscard]] HANDLE get() const noexcept { return token_.get(); }
  explicit operator bool() const noexcept { return static_cast<bool>(token_); }

  // Closes the current handle before taking the new one.
  void store(Tamrin::unique_handle token) noexcept;
  virtual void close() noexcept;

  // From now on the impersonation ends with this object.
  void keep_impersonating(CRevertToSelf revert) noexcept;

 private:
  CRevertToSelf revert_;
  Tamrin::unique_handle token_;
};

// Impersonates the client of `pipe` on the calling thread and opens its token for `access`.
// Something must have been read from the pipe. The thread is reverted before the call returns,
// unless `keep_impersonating` defers that to the end of the CToken. Empty when the client cannot be
// impersonated or the token cannot be opened; in the latter case the thread is left impersonating
// the client, whatever was requested.
[[nodiscard]] CToken open_client_token(HANDLE pipe, DWORD access, bool keep_impersonating,
                                       bool open_as_self);

// A copy of a security identifier, with its account and domain once they have been looked up.
class CSid {
 public:
  // Throws hresult_error with E_INVALIDARG when `sid` is invalid or longer than
  // SECURITY_MAX_SID_SIZE.
  explicit CSid(PSID sid);

  // The SID of a token's user. The token needs TOKEN_QUERY. Throws hresult_error.
  [[nodiscard]] static CSid user_of(HANDLE token);

  // Asks the system, and possibly a domain controller, for the names. Throws hresult_error.
  void look_up();

  // Empty before look_up().
  [[nodiscard]] const std::wstring& account() const noexcept { return account_; }
  [[nodiscard]] const std::wstring& domain() const noexcept { return domain_; }
  // domain\account, or the account alone when it has no domain.
  [[nodiscard]] std::wstring display_name() const;

  [[nodiscard]] PSID get() noexcept { return bytes_.data(); }

 private:
  alignas(DWORD) std::array<std::byte, SECURITY_MAX_SID_SIZE> bytes_ = {};
  std::wstring account_;
  std::wstring domain_;
};

// The display name of the token's user; std::nullopt for an empty token. Throws hresult_error.
[[nodiscard]] std::optional<std::wstring> account_name(const CToken& token);

}  // namespace tether
