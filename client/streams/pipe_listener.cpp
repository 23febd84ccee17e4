#include "client/streams/pipe_listener.h"

#include <string>

#include "client/line/client_error.h"
#include "client/streams/handle_stream.h"
#include "platform/unique_resource.h"
#include "rpc/client_identity.h"
#include "rpc/pipe_transport.h"
#include "rpc/security_descriptor.h"

// After win32.h.
#include <sddl.h>

namespace tarnwheel::client {
namespace {

constexpr std::wstring_view kPrefix = LR"(\\.\pipe\)";
constexpr DWORD kBuffer = 64 * 1024;  // bytes, in each direction

constexpr known_cause kPipeCauses[] = {
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program", failure::local},
    {ERROR_PIPE_BUSY, L"{0} is in use by another program", failure::local},
    {ERROR_INVALID_NAME, L"{0} is not a valid pipe name", failure::usage},
};

// The SID of the account that this process runs under.
std::wstring own_sid() {
  HANDLE opened = nullptr;
  ostra::details::check_bool(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened));
  const Tamrin::unique_handle token(opened);
  auto user = tether::CSid::user_of(token.get());
  wchar_t* text = nullptr;
  ostra::details::check_bool(::ConvertSidToStringSidW(user.get(), &text));
  const Tamrin::unique_local_memory owner(text);
  return text;
}

// The system's default security would let everyone read the port's data.
tether::security_descriptor own_account_only() {
  return tether::security_descriptor::from_sddl(L"D:P(A;;GA;;;SY)(A;;GA;;;" + own_sid() + L")");
}

Tamrin::unique_file make_pipe(const std::wstring& path, DWORD more_flags,
                              const tether::security_descriptor& security) {
  SECURITY_ATTRIBUTES attributes = security.attributes();
  return Tamrin::unique_file(ostra::details::check_file(::CreateNamedPipeW(
      path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | more_flags,
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
      PIPE_UNLIMITED_INSTANCES, kBuffer, kBuffer, 0, &attributes)));
}

class pipe_stream final : public handle_stream<Tamrin::unique_file> {
 public:
  using handle_stream::handle_stream;

  ostra::future<void> connect(ostra::cancellation_token token) {
    const auto self = shared_from_this();
    auto call = handle().call(tether::connect_pipe(), token);
    co_await call;
  }

  // A pipe cannot be half closed; bytes written before it is closed can still be read.
  void finish() noexcept override {}
  [[nodiscard]] std::wstring peer() const override { return L"A program"; }
};

class pipe_listener final : public stream_listener {
 public:
  explicit pipe_listener(std::wstring path)
      : path_(std::move(path)), next_(make_pipe(path_, FILE_FLAG_FIRST_PIPE_INSTANCE, security_)) {}

  ostra::future<std::shared_ptr<byte_stream>> accept() override {
    if (!next_)
      next_ = make_pipe(path_, 0, security_);
    const auto stream = std::make_shared<pipe_stream>(std::move(next_));
    auto connected = stream->connect(token_);
    co_await connected;
    std::shared_ptr<byte_stream> client = stream;
    co_return client;
  }

  void cancel() noexcept override { cancellation_.cancel(); }
  [[nodiscard]] std::wstring address() const override { return path_; }

 private:
  const std::wstring path_;
  const tether::security_descriptor security_ = own_account_only();
  Tamrin::unique_file next_;  // the instance that waits for a program; used by accept() only

  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();
};

}  // namespace

std::unique_ptr<stream_listener> listen_pipe(std::wstring_view name) {
  std::wstring path(name);
  if (!name.starts_with(kPrefix))
    path.insert(0, kPrefix);
  try {
    return std::make_unique<pipe_listener>(path);
  } catch (const ostra::hresult_error& error) {
    throw explain(error.code(), path, kPipeCauses, failure::local);
  }
}

}  // namespace tarnwheel::client
