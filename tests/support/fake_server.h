// For tests: a server in the same process, over a real pipe, with a device that does what a test
// has told it to.
#pragma once

#include <algorithm>
#include <atomic>
#include <map>
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
#include "platform/serial.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/pipe_transport.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/named_objects.h"

namespace tarnwheel::client::test {

using bytes = std::vector<std::byte>;

// The bytes of one value.
template <class T>
bytes bytes_of(const T& value) {
  const auto view = std::as_bytes(std::span(&value, 1));
  return {view.begin(), view.end()};
}

// " 1 0 255", each byte in decimal.
inline std::string numbers(const bytes& data) {
  std::string text;
  for (const std::byte byte : data)
    text += " " + std::to_string(std::to_integer<int>(byte));
  return text;
}

// A serial device whose other end is the test. The members without a lock are set up before the
// client calls; everything else may be used at any time from any thread.
class fake_device final : public tether::IServer_Remote {
 public:
  enum : std::uint32_t { kOpen, kWrite, kRead };

  std::vector<tether::port_record> ports;
  HRESULT open_outcome = S_OK;
  HRESULT outcome = S_OK;                  // of everything else
  std::set<std::uint32_t> unanswered;      // control codes, or of the calls above
  std::map<std::uint32_t, bytes> outputs;  // of the next control with a code
  ostra::async_event may_write{true};
  ostra::async_event lacks_events{false};  // set: each wait for events ends without any

  // Bytes come.
  void send(std::string_view text) {
    {
      const std::lock_guard guard(lock_);
      const auto view = std::as_bytes(std::span(text));
      coming_.insert(coming_.end(), view.begin(), view.end());
    }
    byte_came_.set();
  }

  // The calls since the last time: " [FUNCTION INPUT...]" of a control, in which a code is its
  // number among those of serial ports, and " read SIZE".
  std::string take_calls() {
    const std::lock_guard guard(lock_);
    return std::exchange(calls_, {});
  }
  bytes written() const {
    const std::lock_guard guard(lock_);
    return written_;
  }

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override { co_return ports; }

  ostra::future<HRESULT> OpenPort(std::uint32_t) override {
    answer_or_throw(kOpen);
    co_return open_outcome;
  }

  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t,
                                                bytes input) override {
    note(" [" + std::to_string(code >> 2 & 0xFFF) + numbers(input) + "]");
    answer_or_throw(code);
    if (code == IOCTL_SERIAL_WAIT_ON_MASK) {
      auto none = lacks_events.wait();
      co_await none;
    }
    tether::bytes_result result{outcome, output_of(code)};
    co_return result;
  }

  ostra::future<HRESULT> Write(bytes data) override {
    answer_or_throw(kWrite);
    auto allowed = may_write.wait();
    co_await allowed;
    const std::lock_guard guard(lock_);
    written_.insert(written_.end(), data.begin(), data.end());
    co_return outcome;
  }

  ostra::future<tether::bytes_result> Read(std::uint32_t size) override {
    note(" read " + std::to_string(size));
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
  void note(const std::string& call) {
    const std::lock_guard guard(lock_);
    calls_ += call;
  }
  bytes output_of(std::uint32_t code) {
    const std::lock_guard guard(lock_);
    if (code == IOCTL_SERIAL_WAIT_ON_MASK)
      return bytes_of(DWORD{0});
    if (auto told = outputs.extract(code))
      return std::move(told.mapped());
    SERIAL_STATUS status = {};
    status.AmountInInQueue = static_cast<ULONG>(coming_.size());
    return code == IOCTL_SERIAL_GET_COMMSTATUS ? bytes_of(status) : bytes();
  }

  ostra::async_event byte_came_{false};

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  bytes coming_, written_;
  std::string calls_;
};

// Listens from construction to destruction on a pipe of its own, for one client after another.
class fake_server {
 public:
  fake_server() { accept(); }
  fake_server(const fake_server&) = delete;
  fake_server& operator=(const fake_server&) = delete;
  ~fake_server() {
    hang_up();
    for (const auto& client : clients_)
      client.wait();
  }

  // Makes the one pipe instance for the next client, and serves that client until it goes.
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

// The message of the client_error that `action` fails with; "" when it does not fail.
template <class Action>
std::wstring failure_of(Action action) {
  try {
    static_cast<void>(action());
    return L"";
  } catch (const client_error& error) {
    return error.message();
  }
}

}  // namespace tarnwheel::client::test
