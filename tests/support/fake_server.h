// For tests: a server in the same process, over a real pipe, with a device that does what a test
// has told it to.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "async/cancellation.h"
#include "async/event.h"
#include "async/srw_lock.h"
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
  bool read_fails = false;             // likewise
  bool open_blocks = false;
  bool has_events = true;              // otherwise every wait for them ends at once
  std::map<std::uint32_t, std::vector<std::byte>> outputs;  // of control codes

  std::atomic<std::size_t> reads = 0;

  // Bytes come; events happen; writes wait from now on, until they are let go.
  void send(std::string_view text);
  void raise(std::uint32_t events);
  void hold_writes() { writes_.reset(); }
  void release_writes() { writes_.set(); }

  [[nodiscard]] std::vector<control_call> controls() const;
  [[nodiscard]] std::size_t count(std::uint32_t code) const;
  [[nodiscard]] std::vector<std::byte> written() const;

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override;
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override;
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                                std::vector<std::byte> input) override;
  ostra::future<HRESULT> Write(std::vector<std::byte> data) override;
  ostra::future<tether::bytes_result> Read(std::uint32_t size) override;

 private:
  [[nodiscard]] std::vector<std::byte> output_of(std::uint32_t code);

  ostra::async_event byte_came_{false};
  ostra::async_event event_came_{false};
  ostra::async_event writes_{true};
  ostra::async_event never_{false};

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::vector<std::byte> coming_;
  std::uint32_t events_ = 0;
  std::vector<control_call> controls_;
  std::vector<std::byte> written_;
};

// Listens from construction to destruction on a pipe of its own, for one client after another.
class fake_server {
 public:
  fake_server();
  fake_server(const fake_server&) = delete;
  fake_server& operator=(const fake_server&) = delete;
  ~fake_server();

  [[nodiscard]] const std::wstring& pipe() const noexcept { return pipe_; }

  // Makes the one pipe instance for the next client, and serves that client until it goes.
  void accept();

  // Ends the connections of all clients.
  void hang_up() const { cancellation_.cancel(); }

  const std::shared_ptr<fake_device> device = std::make_shared<fake_device>();

 private:
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

  static ostra::future<void> serve(std::shared_ptr<tether::ITransport> transport,
                                   std::shared_ptr<fake_device> device);

  const std::wstring pipe_;
  const ostra::cancellation_source cancellation_;
  std::vector<ostra::future<void>> clients_;
};

}  // namespace tarnwheel::client::test
