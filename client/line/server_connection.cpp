#include "client/line/server_connection.h"

#include <algorithm>

#include "async/handle_wait.h"
#include "format/format.h"
#include "rpc/pipe_transport.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint16_t kClientCode = 1;
constexpr milliseconds kBusyLimit(2000);
constexpr milliseconds kLeaveLimit(2000);
constexpr DWORD kBusyPause = 50;  // milliseconds

constexpr known_cause kConnectCauses[] = {
    {ERROR_FILE_NOT_FOUND, L"No server runs on {0}", failure::connection},
    {ERROR_TIMEOUT, L"No server runs on {0}", failure::connection},
    {ERROR_PATH_NOT_FOUND, L"{0} cannot be reached", failure::connection},
    {ERROR_BAD_NETPATH, L"{0} cannot be reached", failure::connection},
    {ERROR_BAD_NET_NAME, L"{0} cannot be reached", failure::connection},
    {ERROR_ACCESS_DENIED,
     L"The server on {0} refuses this account; its --security-descriptor must allow it",
     failure::refused},
    {ERROR_LOGON_FAILURE,
     L"{0} does not know this account or its password; \"net use \\\\{0}\\IPC$ /user:NAME *\" "
     L"gives it another",
     failure::refused},
    {ERROR_ACCOUNT_RESTRICTION,
     L"{0} refuses this account, perhaps for its empty password; \"net use \\\\{0}\\IPC$ "
     L"/user:NAME *\" gives it another",
     failure::refused},
    {ERROR_ACCOUNT_DISABLED, L"This account is disabled on {0}; an administrator enables it there",
     failure::refused},
    {ERROR_LOGON_TYPE_NOT_GRANTED,
     L"{0} does not admit this account from the network; the right is \"Access this computer from "
     L"the network\" there",
     failure::refused},
    {ERROR_SESSION_CREDENTIAL_CONFLICT,
     L"There is already a connection to {0} under another account; \"net use \\\\{0}\\IPC$ "
     L"/delete\" ends it",
     failure::refused},
    {ERROR_PIPE_BUSY, L"The server on {0} is busy", failure::connection},
};

constexpr known_cause kInUseCauses[] = {
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program or client", failure::refused},
};

constexpr known_cause kOpenCauses[] = {
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program or client, or is not shared",
     failure::refused},
    {ERROR_SHARING_VIOLATION, L"{0} is in use by another program or client", failure::refused},
    {ERROR_FILE_NOT_FOUND, L"{0} does not exist", failure::refused},
};

std::wstring display_name_of(std::wstring_view name) {
  return name == L"." ? L"this machine" : std::wstring(name);
}

// All instances are busy only briefly: the server makes the next one as soon as a client has taken
// the last.
HRESULT connect_when_free(tether::ITransport& transport, std::wstring_view name,
                          std::wstring_view pipe) {
  const auto deadline = steady_clock::now() + kBusyLimit;
  for (;;) {
    const HRESULT outcome = transport.Connect(name, pipe, NMPWAIT_USE_DEFAULT_WAIT, 1);
    const bool busy = outcome == ostra::details::to_hresult(ERROR_PIPE_BUSY);
    if (!busy || steady_clock::now() >= deadline)
      return outcome;
    ::Sleep(kBusyPause);
  }
}

std::shared_ptr<tether::ITransport> connect(std::wstring_view name, std::wstring_view pipe) {
  auto transport = tether::PipeTransport::Create();
  HRESULT outcome = S_OK;
  try {
    outcome = connect_when_free(*transport, name, pipe);
  } catch (const ostra::hresult_error& error) {
    outcome = error.code();  // the open pipe cannot be used
  }
  if (FAILED(outcome))
    throw explain(outcome, display_name_of(name), kConnectCauses, failure::connection);
  return transport;
}

}  // namespace

// Hangs up a connection if `signal` is signalled during this object's lifetime.
class server_connection::hang_up_signal {
 public:
  hang_up_signal(HANDLE signal, const server_connection& connection)
      : wait_(ostra::details::check_pointer(::CreateThreadpoolWait(
            &on_signal, const_cast<server_connection*>(&connection), nullptr))) {
    if (signal != nullptr)
      ::SetThreadpoolWait(wait_.get(), signal, nullptr);
  }
  hang_up_signal(const hang_up_signal&) = delete;
  hang_up_signal& operator=(const hang_up_signal&) = delete;
  ~hang_up_signal() {
    ::SetThreadpoolWait(wait_.get(), nullptr, nullptr);
    ::WaitForThreadpoolWaitCallbacks(wait_.get(), TRUE);
  }

 private:
  static void CALLBACK on_signal(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT,
                                 TP_WAIT_RESULT) noexcept {
    static_cast<const server_connection*>(context)->hang_up();
  }

  const ostra::unique_threadpool_wait wait_;
};

std::wstring port_name(std::uint32_t number) {
  return tfmt::format(L"COM{0}", number);
}

server_connection::server_connection(std::wstring_view name, std::wstring_view pipe)
    : display_name_(display_name_of(name)),
      connection_(std::make_shared<connection>(connect(name, pipe), kClientCode,
                                               std::weak_ptr<tether::IServer_Remote>())),
      receiving_(run(connection_, end_)) {}

server_connection::~server_connection() {
  hang_up();
  try {
    ostra::within(std::move(receiving_), kLeaveLimit).get();
  } catch (...) {
    // The network has gone, or there is no memory to wait with. The read owns everything it uses.
  }
}

ostra::future<void> server_connection::run(std::shared_ptr<connection> connection,
                                           std::shared_ptr<ostra::async_event> end) {
  auto receiving = connection->Run();
  co_await receiving;
  end->set();
}

void server_connection::hang_up() const noexcept {
  connection_->End();
  end_->set();
}

std::wstring server_connection::open_port(std::uint32_t number, HANDLE stop) {
  std::wstring name = port_name(number);
  const hang_up_signal stopping(stop, *this);
  const HRESULT outcome = wait(remote().OpenPort(number), name, kOpenLimit);
  // The code means that the port is in use or is not shared; a port that is listed is shared.
  if (outcome == E_ACCESSDENIED && lists(number))
    throw explain(outcome, name, kInUseCauses);
  if (FAILED(outcome))
    throw explain(outcome, name, kOpenCauses, failure::refused);
  return name;
}

bool server_connection::lists(std::uint32_t number) {
  const auto ports = wait(remote().EnumeratePorts(), display_name_);
  return std::ranges::find(ports, number, &tether::port_record::number) != ports.end();
}

client_error server_connection::end_of_connection(std::wstring_view subject) const {
  return failure(display_name_, subject, milliseconds::zero(), ostra::operation_cancelled().code());
}

client_error server_connection::failure(std::wstring_view server, std::wstring_view subject,
                                        milliseconds limit, HRESULT code) {
  if (code == ostra::details::to_hresult(ERROR_TIMEOUT)) {
    const auto count = static_cast<std::uint32_t>(limit.count());
    return client_error(tfmt::format(L"{0}: no answer within {1} ms", subject, count), code);
  }
  if (code == ostra::operation_cancelled().code())
    return client_error(
        tfmt::format(L"{0}: the server on {1} ended the connection", subject, server), code,
        failure::connection);
  return explain(code, subject);
}

}  // namespace tarnwheel::client
