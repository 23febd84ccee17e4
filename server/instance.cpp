#include "server/instance.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <new>
#include <utility>

#include "async/background.h"
#include "async/errors.h"
#include "log/log.h"
#include "platform/serial.h"
#include "server/port_list.h"
#include "server/present_ports.h"

namespace tarnwheel {
namespace {

constexpr HRESULT kAlreadyHoldsPort = static_cast<HRESULT>(0x800700B7);
constexpr HRESULT kNoOpenPort = static_cast<HRESULT>(0x800708CA);  // ERROR_NOT_CONNECTED

// The account of the client at the other end; empty when it cannot be had. Runs on one thread from
// start to end, since the identity is taken on by the thread.
std::wstring account_of_client(tether::ITransport& transport) {
  try {
    const tether::CToken token = transport.GetClientToken(TOKEN_QUERY, false, false);
    // Without its token the thread may have been left with the client's identity.
    if (!token)
      tether::revert_to_self();
    return tether::account_name(token).value_or(std::wstring());
  } catch (const ostra::hresult_error&) {
    return {};
  }
}

// Moves on to another thread what would block the one that it came on: the acceptor's, for a
// session that begins, or the receive loop's, for a request that lists or opens ports. When the
// pool takes no more work, it goes on where it is.
ostra::future<void> off_this_thread() {
  try {
    ostra::resume_background hop;
    co_await hop;
  } catch (const ostra::hresult_error&) {
  }
}

// Some drivers hold up the closing of a device as long as a wait for its events goes on; setting
// the mask ends that wait. Nobody waits for the outcome.
ostra::future<void> clear_wait_mask(std::shared_ptr<serial_port> port) {
  const std::array<std::byte, sizeof(ULONG)> no_events = {};
  auto cleared = port->control(IOCTL_SERIAL_SET_WAIT_MASK, no_events, {});
  co_await cleared;
}

}  // namespace

instance::instance(std::vector<std::uint32_t> shared_ports)
    : shared_ports_(std::move(shared_ports)) {}

void instance::start(std::shared_ptr<tether::ITransport> transport,
                     std::vector<std::uint32_t> shared_ports,
                     session_group::membership membership) {
  const std::shared_ptr<instance> self(new instance(std::move(shared_ports)));
  self->connection_ = std::make_shared<client_connection>(std::move(transport), tether::kServerCode,
                                                          std::weak_ptr<instance>(self));
  static_cast<void>(watch(self, self->connection_, std::move(membership)));
}

// Releases the session's port however the watch ends, even when it runs out of memory.
class instance::departure {
 public:
  explicit departure(instance& session) noexcept : session_(session) {}
  departure(const departure&) = delete;
  departure& operator=(const departure&) = delete;
  ~departure() { session_.depart(); }

 private:
  instance& session_;
};

ostra::future<void> instance::watch(std::shared_ptr<instance> self,
                                    std::shared_ptr<client_connection> connection,
                                    session_group::membership) {
  const departure leaving(*self);
  auto moved = off_this_thread();
  co_await moved;
  auto ended = connection->Run();
  co_await ended;
  logging::write(logging::info, L"Client {0} disconnected", self->name());
}

std::wstring instance::name() const {
  const std::lock_guard guard(lock_);
  return client_name_;
}

std::wstring instance::identify_client() {
  if (const auto transport = connection_->Transport()) {
    std::wstring account = account_of_client(*transport);
    const std::lock_guard guard(lock_);
    if (!account.empty())
      client_name_ = std::move(account);
  }
  return name();
}

ostra::future<std::vector<tether::port_record>> instance::EnumeratePorts() {
  auto moved = off_this_thread();
  co_await moved;
  logging::write(logging::info, L"Client {0} is enumerating available ports", identify_client());
  std::vector<tether::port_record> records;
  for (auto& port : shared_present_ports(present_ports(), shared_ports_)) {
    records.push_back({std::move(port.friendly_name), port.number});
  }
  co_return records;
}

// Reserves the session's one port while it lives, so that of two requests that arrive together one
// is refused; gives the reservation up unless the port was opened.
class instance::opening {
 public:
  explicit opening(instance& session) : session_(session) {
    const std::lock_guard guard(session_.lock_);
    reserved_ = session_.port_state_ == port_state::none;
    if (reserved_)
      session_.port_state_ = port_state::opening;
  }
  opening(const opening&) = delete;
  opening& operator=(const opening&) = delete;
  ~opening() {
    const std::lock_guard guard(session_.lock_);
    if (reserved_ && session_.port_state_ == port_state::opening) {
      session_.port_state_ = port_state::none;
    }
  }

  [[nodiscard]] bool reserved() const noexcept { return reserved_; }

 private:
  instance& session_;
  bool reserved_ = false;
};

ostra::future<HRESULT> instance::OpenPort(std::uint32_t number) {
  const opening reservation(*this);
  if (!reservation.reserved())
    co_return kAlreadyHoldsPort;
  auto moved = off_this_thread();
  co_await moved;
  const std::wstring client = identify_client();
  logging::write(logging::debug, L"Client {0} is attempting to connect to COM{1}", client, number);
  co_return open_shared_port(number, client);
}

HRESULT instance::open_shared_port(std::uint32_t number, const std::wstring& client) {
  if (!is_shared(shared_ports_, number)) {
    logging::write(logging::debug, L"COM{0} sharing is prohibited", number);
    return E_ACCESSDENIED;
  }
  auto port = std::make_shared<serial_port>();
  const HRESULT outcome = port->open(number);
  if (FAILED(outcome)) {
    logging::write(logging::debug,
                   L"Client {0} gets error \"{2ub016xp}\" while trying to connect to COM{1}",
                   client, number, outcome);
    return outcome;
  }
  keep_port(std::move(port));
  logging::write(logging::info, L"Client {0} has just connected to COM{1}", client, number);
  return S_OK;
}

void instance::keep_port(std::shared_ptr<serial_port> port) {
  const std::lock_guard guard(lock_);
  // The client may have gone while the device was being opened: then the port closes with `port`.
  if (port_state_ != port_state::opening)
    throw ostra::operation_cancelled();
  port_state_ = port_state::open;
  port_ = std::move(port);
}

std::shared_ptr<serial_port> instance::port() const noexcept {
  const std::lock_guard guard(lock_);
  return port_;
}

ostra::future<tether::bytes_result> instance::IoControl(std::uint32_t code,
                                                        std::uint32_t output_size,
                                                        std::vector<std::byte> input) {
  const auto open_port = port();
  tether::bytes_result result{kNoOpenPort, {}};
  if (!open_port)
    co_return result;
  result.bytes.resize(output_size);
  auto control = open_port->control(code, input, result.bytes);
  const DWORD size = co_await control;
  result.bytes.resize(std::min<std::size_t>(size, output_size));
  result.code = S_OK;
  co_return result;
}

ostra::future<HRESULT> instance::Write(std::vector<std::byte> data) {
  const auto open_port = port();
  if (!open_port)
    co_return kNoOpenPort;
  auto write = open_port->write(data);
  co_await write;
  co_return S_OK;
}

ostra::future<tether::bytes_result> instance::Read(std::uint32_t size) {
  const auto open_port = port();
  tether::bytes_result result{kNoOpenPort, {}};
  if (!open_port)
    co_return result;
  result.bytes.resize(size);
  auto read = open_port->read(result.bytes);
  const DWORD arrived = co_await read;
  result.bytes.resize(arrived);
  result.code = S_OK;
  co_return result;
}

void instance::depart() noexcept {
  std::shared_ptr<serial_port> port;
  {
    const std::lock_guard guard(lock_);
    port_state_ = port_state::gone;
    port.swap(port_);
  }
  if (!port)
    return;
  try {
    static_cast<void>(clear_wait_mask(port));
  } catch (const std::bad_alloc&) {
    // Closing the port does not depend on it.
  }
  port->close();
}

}  // namespace tarnwheel
