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
#include "platform/serial.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/pipe_transport.h"
#include "rpc/server_iserver.h"

namespace tarnwheel::client::test {

struct control_call {
  std::uint32_t code;
  std::vector<std::byte> input;
};

// A serial device whose other end is the test. The public members are set up before the client
// calls; everything else may be used at any time from any thread.
class fake_device final : public tether::IServer_Remote {
 public:
  std::vector<tether::port_record> ports;
  HRESULT open_outcome = S_OK;
  HRESULT outcome = S_OK;              // of everything else
  std::set<std::uint32_t> unanswered;  // control codes that the device does not know
  bool write_fails = false;            // which leaves it without a reply
  bool has_events = true;              // otherwise every wait for them ends at once
  std::map<std::uint32_t, std::vector<std::byte>> outputs;  // of control codes

  std::atomic<std::size_t> reads = 0;

  // Bytes come; events happen; writes wait from now on, until they are let go.
  void send(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    {
      const std::lock_guard guard(lock_);
      coming_.insert(coming_.end(), bytes.begin(), bytes.end());
    }
    byte_came_.set();
  }
  void raise(std::uint32_t events) {
    events_ |= events;
    event_came_.set();
  }
  void hold_writes() { writes_.reset(); }
  void release_writes() { writes_.set(); }

  [[nodiscard]] std::vector<control_call> controls() const {
    const std::lock_guard guard(lock_);
    return controls_;
  }
  [[nodiscard]] std::size_t count(std::uint32_t code) const {
    const std::lock_guard guard(lock_);
    return static_cast<std::size_t>(std::ranges::count(controls_, code, &control_call::code));
  }
  [[nodiscard]] std::vector<std::byte> written() const {
    const std::lock_guard guard(lock_);
    return written_;
  }

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override { co_return ports; }
  ostra::future<HRESULT> OpenPort(std::uint32_t) override { co_return open_outcome; }
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t,
                                                std::vector<std::byte> input) override {
    {
      const std::lock_guard guard(lock_);
      controls_.push_back({code, std::move(input)});
    }
    if (unanswered.contains(code))
      ostra::details::throw_win32(ERROR_NOT_SUPPORTED);
    if (code == IOCTL_SERIAL_WAIT_ON_MASK && has_events) {
      auto event = event_came_.wait();
      co_await event;
    }
    tether::bytes_result result;
    result.code = outcome;
    result.bytes = output_of(code);
    co_return result;
  }
  ostra::future<HRESULT> Write(std::vector<std::byte> data) override {
    if (write_fails)
      ostra::details::throw_win32(ERROR_GEN_FAILURE);
    auto released = writes_.wait();
    co_await released;
    const std::lock_guard guard(lock_);
    written_.insert(written_.end(), data.begin(), data.end());
    co_return outcome;
  }
  ostra::future<tether::bytes_result> Read(std::uint32_t size) override {
    ++reads;
    auto byte = byte_came_.wait();
    co_await byte;
    tether::bytes_result result;
    result.code = outcome;
    const std::lock_guard guard(lock_);
    const auto end = coming_.begin() + std::min<std::ptrdiff_t>(size, std::ssize(coming_));
    result.bytes.assign(coming_.begin(), end);
    coming_.erase(coming_.begin(), end);
    if (coming_.empty())
      byte_came_.reset();
    co_return result;
  }

 private:
  template <class T>
  static std::vector<std::byte> bytes_of(const T& value) {
    const auto bytes = std::as_bytes(std::span(&value, 1));
    return {bytes.begin(), bytes.end()};
  }

  [[nodiscard]] std::vector<std::byte> output_of(std::uint32_t code) {
    const std::lock_guard guard(lock_);
    if (code == IOCTL_SERIAL_WAIT_ON_MASK) {
      event_came_.reset();
      return bytes_of(events_.exchange(0));
    }
    SERIAL_STATUS status = {};
    status.AmountInInQueue = static_cast<ULONG>(coming_.size());
    const auto found = outputs.find(code);
    if (found == outputs.end() && code == IOCTL_SERIAL_GET_COMMSTATUS)
      return bytes_of(status);
    return found == outputs.end() ? std::vector<std::byte>() : found->second;
  }

  ostra::async_event byte_came_{false};
  ostra::async_event event_came_{false};
  ostra::async_event writes_{true};
  std::atomic<std::uint32_t> events_ = 0;

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::vector<std::byte> coming_;
  std::vector<control_call> controls_;
  std::vector<std::byte> written_;
};

// Listens from construction to destruction on a pipe of its own, for one client after another.
class fake_server {
 public:
  fake_server() { accept(); }
  fake_server(const fake_server&) = delete;
  fake_server& operator=(const fake_server&) = delete;
  ~fake_server() {
    cancellation_.cancel();
    for (const auto& client : clients_)
      client.wait();
  }

  [[nodiscard]] const std::wstring& pipe() const noexcept { return pipe_; }

  // Makes the one pipe instance for the next client, and serves that client until it goes.
  void accept() {
    auto transport = tether::PipeTransport::Create();
    transport->LinkCancellation(cancellation_);
    ostra::details::check_hresult(transport->Listen(pipe_, nullptr));
    clients_.push_back(serve(std::move(transport), device));
  }

  // Ends the connections of all clients.
  void hang_up() const { cancellation_.cancel(); }

  const std::shared_ptr<fake_device> device = std::make_shared<fake_device>();

 private:
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

  static ostra::future<void> serve(std::shared_ptr<tether::ITransport> transport,
                                   std::shared_ptr<fake_device> device) {
    auto connected = transport->WaitClient(false, nullptr);
    co_await connected;
    const auto client = std::make_shared<connection>(std::move(transport), tether::kServerCode,
                                                     std::weak_ptr<fake_device>(device));
    auto ended = client->Run();
    co_await ended;
  }

  static inline std::atomic<unsigned> count_ = 0;
  const std::wstring pipe_ =
      L"client_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" + std::to_wstring(++count_);
  const ostra::cancellation_source cancellation_;
  std::vector<ostra::future<void>> clients_;
};

}  // namespace tarnwheel::client::test
