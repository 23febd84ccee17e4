// For tests: a server in the same process, over a real pipe, with a device that the test controls.
#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "async/cancellation.h"
#include "async/errors.h"
#include "async/event.h"
#include "async/srw_lock.h"
#include "client/line/client_error.h"
#include "client/line/control_bytes.h"
#include "platform/serial.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/pipe_transport.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/named_objects.h"

namespace tarnwheel::client::test {

using bytes = std::vector<std::byte>;

// Each byte in decimal, such as " 1 0 255".
inline std::string numbers(const bytes& data) {
  std::string text;
  for (const std::byte byte : data)
    text += " " + std::to_string(std::to_integer<int>(byte));
  return text;
}

// The serial device COM5, with the test at the far end of its line. `outcome` and `unanswered` must
// be set before the client calls; everything else may be used at any time from any thread.
class fake_device final : public tether::IServer_Remote {
 public:
  enum : std::uint32_t { kOpen, kRead };

  HRESULT outcome = S_OK;              // of every call but EnumeratePorts
  std::set<std::uint32_t> unanswered;  // control codes, or the calls above
  std::atomic<DWORD> modem_lines = 0;  // MS_*
  std::atomic<DWORD> errors = 0;       // SERIAL_ERROR_*, cleared when the client reads them
  ostra::async_event may_write{true};

  // Makes the bytes arrive on the device's line.
  void send(std::string_view text) {
    const auto view = std::as_bytes(std::span(text));
    std::unique_lock guard(lock_);
    coming_.insert(coming_.end(), view.begin(), view.end());
    guard.unlock();
    byte_came_.set();
  }

  // The controls since the last call, each " [FUNCTION INPUT...]", where FUNCTION is the function
  // number in the control code.
  std::string take_calls() {
    const std::lock_guard guard(lock_);
    return std::exchange(calls_, {});
  }
  bytes written() const {
    const std::lock_guard guard(lock_);
    return written_;
  }

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override {
    co_return std::vector<tether::port_record>{{L"", 5}};
  }

  ostra::future<HRESULT> OpenPort(std::uint32_t) override {
    answer_or_throw(kOpen);
    co_return outcome;
  }

  // A wait for events completes at once, without any.
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t,
                                                bytes input) override {
    const std::lock_guard guard(lock_);
    calls_ += " [" + std::to_string(code >> 2 & 0xFFF) + numbers(input) + "]";
    answer_or_throw(code);
    SERIAL_STATUS output = {0, 0, static_cast<ULONG>(coming_.size()), 0, FALSE, FALSE};
    if (code == IOCTL_SERIAL_GET_COMMSTATUS)
      output.Errors = errors.exchange(0);
    else if (code == IOCTL_SERIAL_GET_MODEMSTATUS)
      output.Errors = modem_lines;  // the modem status is the first ULONG of the output
    co_return tether::bytes_result{outcome, bytes_of(output)};
  }

  ostra::future<HRESULT> Write(bytes data) override {
    auto allowed = may_write.wait();
    co_await allowed;
    const std::lock_guard guard(lock_);
    written_.insert(written_.end(), data.begin(), data.end());
    co_return outcome;
  }

  ostra::future<tether::bytes_result> Read(std::uint32_t size) override {
    answer_or_throw(kRead);
    auto byte = byte_came_.wait();
    co_await byte;
    const std::lock_guard guard(lock_);
    const auto end = coming_.begin() + std::min<std::ptrdiff_t>(size, std::ssize(coming_));
    tether::bytes_result result{outcome, bytes(coming_.begin(), end)};
    coming_.erase(coming_.begin(), end);
    if (coming_.empty())
      byte_came_.reset();
    co_return result;
  }

 private:
  void answer_or_throw(std::uint32_t code) const {
    if (unanswered.contains(code))
      ostra::details::throw_win32(ERROR_NOT_SUPPORTED);
  }

  ostra::async_event byte_came_{false};

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  bytes coming_, written_;
  std::string calls_;
};

// Listens on a pipe of its own from construction to destruction, for one client after another.
class fake_server {
 public:
  fake_server() { accept(); }
  ~fake_server() {
    hang_up();
    for (const auto& client : clients_)
      client.wait();
  }

  // Creates one pipe instance for the next client, and serves that client until it disconnects.
  void accept() {
    auto transport = tether::PipeTransport::Create();
    transport->LinkCancellation(cancellation_);
    ostra::details::check_hresult(transport->Listen(pipe, nullptr));
    clients_.push_back(serve(std::move(transport), device));
  }

  // Ends the connections of all clients.
  void hang_up() const { cancellation_.cancel(); }

  const std::wstring pipe = testing_support::unique_name();
  const std::shared_ptr<fake_device> device = std::make_shared<fake_device>();

 private:
  static ostra::future<void> serve(std::shared_ptr<tether::ITransport> transport,
                                   std::shared_ptr<fake_device> device) {
    auto connected = transport->WaitClient(false, nullptr);
    co_await connected;
    using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;
    const auto client = std::make_shared<connection>(std::move(transport), tether::kServerCode,
                                                     std::weak_ptr<fake_device>(device));
    auto ended = client->Run();
    co_await ended;
  }

  const ostra::cancellation_source cancellation_;
  std::vector<ostra::future<void>> clients_;
};

// The message of the client_error that `action` throws; "" if it throws none.
template <class Action>
std::wstring failure_of(Action action) {
  try {
    action();
    return L"";
  } catch (const client_error& error) {
    return error.message();
  }
}

}  // namespace tarnwheel::client::test
