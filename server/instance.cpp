#include "server/instance.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <span>
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
constexpr wchar_t kMessageTooLong[] =
    L"Client {0} has announced a message of more than {1} bytes; its connection is ended";

constexpr HRESULT kNoOpenPort = static_cast<HRESULT>(0x800708CA);  // ERROR_NOT_CONNECTED

// How long a departure waits for the client's name, which its last log lines contain.
constexpr std::chrono::seconds kNameLimit(2);

// Moves a coroutine off a thread that it would block: the acceptor's, when a session begins, or the
// receive loop's, when a request lists or opens ports.
//
// The coroutine to be moved awaits it directly: a helper coroutine might have moved and ended
// before it is awaited, and its waiter would then continue on the old thread.
using off_this_thread = ostra::try_resume_background;

// A buffer for a device's output, cleared: a driver may report more bytes than it has written, and
// the client must not receive what the memory held before.
class output_buffer {
 public:
  explicit output_buffer(std::size_t size)
      : size_(size), bytes_(std::make_unique<std::byte[]>(size)) {}

  [[nodiscard]] std::span<std::byte> span() const noexcept { return {bytes_.get(), size_}; }

  // The result of a successful call that gave `size` bytes.
  [[nodiscard]] tether::bytes_result result(std::size_t size) const {
    const auto filled = span().first(std::min(size, size_));
    return {S_OK, {filled.begin(), filled.end()}};
  }

 private:
  const std::size_t size_;
  const std::unique_ptr<std::byte[]> bytes_;
};

// Issues a control whose outcome is ignored.
ostra::future<void> order(std::shared_ptr<serial_port> port, std::uint32_t code, ULONG argument) {
  const auto input = std::as_bytes(std::span(&argument, 1));
  auto done = port->control(code, input, {});
  co_await done;
}

// Some drivers do not close a device while a wait for its events is pending, or a write that flow
// control has stopped: setting the mask ends the former, the purge the latter. Bytes that the
// driver has accepted are not cleared, since the client has been told that they were written.
void end_calls(const std::shared_ptr<serial_port>& port) noexcept {
  constexpr std::pair<std::uint32_t, ULONG> kOrders[] = {
      {IOCTL_SERIAL_SET_WAIT_MASK, 0},
      {IOCTL_SERIAL_PURGE, SERIAL_PURGE_TXABORT | SERIAL_PURGE_RXABORT}};
  for (const auto& [code, argument] : kOrders) {
    try {
      static_cast<void>(order(port, code, argument));
    } catch (const std::bad_alloc&) {
      // Closing the port does not depend on these controls.
    }
  }
}

}  // namespace

instance::instance(std::vector<std::uint32_t> shared_ports)
    : shared_ports_(std::move(shared_ports)), log_(std::make_shared<client_log>()) {}

void instance::start(std::shared_ptr<tether::ITransport> transport,
                     std::vector<std::uint32_t> shared_ports, session_group::place place) {
  const std::shared_ptr<instance> self(new instance(std::move(shared_ports)));
  self->connection_ = std::make_shared<client_connection>(std::move(transport), tether::kServerCode,
                                                          std::weak_ptr<instance>(self));
  static_cast<void>(
      watch(self, self->connection_, std::make_shared<session_group::place>(std::move(place))));
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
                                    std::shared_ptr<session_group::place> place) {
  self->place_ = place;
  const departure leaving(*self);
  off_this_thread move;
  co_await move;
  auto ended = connection->Run();
  const HRESULT outcome = co_await ended;
  if (outcome == tether::kMessageTooLong)
    self->log_->write(logging::warning, kMessageTooLong, tether::kMaxPayload);
  if (self->log_->is_looking_up())
    self->depart();  // the port does not wait for the name
  auto settled = self->log_->settle(kNameLimit);
  co_await settled;
  self->log_->write(logging::info, L"Client {0} disconnected");
}

// Called by a request that may block its thread. Returns the session's place, which the request
// holds: a client that leaves meanwhile and comes again takes another one. A request whose turn
// comes only after its client has left ends here.
std::shared_ptr<session_group::place> instance::begin_request() {
  auto place = this->place();
  const auto transport = connection_->Transport();
  if (!transport)
    throw ostra::operation_cancelled();
  log_->identify(*transport, place);
  return place;
}

ostra::future<std::vector<tether::port_record>> instance::EnumeratePorts() {
  off_this_thread move;
  co_await move;
  const auto held = begin_request();
  log_->write(logging::info, L"Client {0} is enumerating available ports");
  std::vector<tether::port_record> records;
  for (auto& port : shared_present_ports(present_ports(), shared_ports_))
    records.push_back({std::move(port.friendly_name), port.number});
  co_return records;
}

ostra::future<HRESULT> instance::OpenPort(std::uint32_t number) {
  if (has_port())
    co_return kAlreadyHoldsPort;
  off_this_thread move;
  co_await move;
  const auto held = begin_request();
  log_->write(logging::debug, L"Client {0} is attempting to connect to COM{1}", number);
  co_return open_shared_port(number);
}

HRESULT instance::open_shared_port(std::uint32_t number) {
  if (!is_shared(shared_ports_, number)) {
    logging::write(logging::debug, L"COM{0} sharing is prohibited", number);
    return E_ACCESSDENIED;
  }
  auto port = std::make_shared<serial_port>();
  const HRESULT outcome = port->open(number);
  if (FAILED(outcome)) {
    log_->write(logging::debug,
                L"Client {0} gets error \"{2ub016xp}\" while trying to connect to COM{1}", number,
                outcome);
    return outcome;
  }
  adopt_port(std::move(port), number);
  log_->write(logging::info, L"Client {0} has just connected to COM{1}", number);
  return S_OK;
}

void instance::adopt_port(std::shared_ptr<serial_port> port, std::uint32_t number) {
  const std::lock_guard guard(lock_);
  // The client may have left while the device was being opened: `port` then closes it.
  if (port_state_ != port_state::none)
    throw ostra::operation_cancelled();
  place_->set_port(number);
  port_state_ = port_state::open;
  port_ = std::move(port);
}

bool instance::has_port() const noexcept {
  const std::lock_guard guard(lock_);
  return port_state_ == port_state::open;
}

std::shared_ptr<session_group::place> instance::place() const noexcept {
  const std::lock_guard guard(lock_);
  return place_;
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
  if (open_port && output_size > tether::kMaxOutput)
    result.code = tether::kOutputTooLarge;
  if (!open_port || output_size > tether::kMaxOutput)
    co_return result;
  const output_buffer output(output_size);
  auto control = open_port->control(code, input, output.span());
  const DWORD size = co_await control;
  result = output.result(size);
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
  const output_buffer output(std::min(size, tether::kMaxOutput));
  auto read = open_port->read(output.span());
  const DWORD arrived = co_await read;
  result = output.result(arrived);
  co_return result;
}

void instance::depart() noexcept {
  std::shared_ptr<session_group::place> place;
  std::shared_ptr<serial_port> port;
  {
    const std::lock_guard guard(lock_);
    place.swap(place_);
    port_state_ = port_state::gone;
    port.swap(port_);
  }
  if (!port)
    return;
  if (port->has_pending_calls())
    end_calls(port);
  port->close();
  place->set_port(0);
}

}  // namespace tarnwheel
