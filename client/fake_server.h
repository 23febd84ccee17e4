// For tests: a server in the same process, over a real pipe, with a device that does what a test
// has told it to.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "async/cancellation.h"
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

// Set up before the client calls, looked at when its calls have returned.
class fake_device final : public tether::IServer_Remote {
 public:
  std::vector<tether::port_record> ports;
  HRESULT open_outcome = S_OK;
  HRESULT outcome = S_OK;                     // of everything else
  std::deque<std::vector<std::byte>> coming;  // one element a read; then nothing comes
  bool always_more = false;                   // a byte comes with every read
  bool write_fails = false;                   // which leaves it without a reply

  std::vector<control_call> controls;
  std::vector<std::byte> written;

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override;
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override;
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                                std::vector<std::byte> input) override;
  ostra::future<HRESULT> Write(std::vector<std::byte> data) override;
  ostra::future<tether::bytes_result> Read(std::uint32_t size) override;
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
