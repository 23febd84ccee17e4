// One connected client's session.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "async/srw_lock.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/server_iserver.h"
#include "server/client_log.h"
#include "server/serial_port.h"
#include "server/session_group.h"

namespace tarnwheel {

using client_connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

// Owned by its watch coroutine, from the client's arrival to its departure, and by each of its
// requests in progress. The connection holds a weak reference to it.
//
// Its place is shared by the watch coroutine and by what may block a thread for the client: listing
// and opening ports, and the look-up of its account. So such threads are no more than two for each
// place, even if clients leave and come again while a driver does not return.
//
// The requests of one client run concurrently, on any pool thread. Controls, writes and reads start
// in order of arrival, so pipelined writes reach the device in order. Listing and opening ports
// block their thread, for a long time with some drivers, so they run outside the receive loop. The
// connection runs one of them at a time, and holds back the requests that follow the opening of a
// port.
class instance final : public tether::IServer_Remote,
                       public std::enable_shared_from_this<instance> {
 public:
  // Starts the session of the client that is connected to `transport`. `shared_ports` is ascending;
  // empty shares every port. The session owns itself until the connection ends; it then logs the
  // departure, closes its port, and gives up its place, unless one of its threads is still blocked.
  static void start(std::shared_ptr<tether::ITransport> transport,
                    std::vector<std::uint32_t> shared_ports, session_group::place place);

  ostra::future<std::vector<tether::port_record>> EnumeratePorts() override;
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override;
  ostra::future<tether::bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                                std::vector<std::byte> input) override;
  ostra::future<HRESULT> Write(std::vector<std::byte> data) override;
  ostra::future<tether::bytes_result> Read(std::uint32_t size) override;

 private:
  enum class port_state { none, open, gone };
  class departure;

  explicit instance(std::vector<std::uint32_t> shared_ports);

  static ostra::future<void> watch(std::shared_ptr<instance> self,
                                   std::shared_ptr<client_connection> connection,
                                   std::shared_ptr<session_group::place> place);

  [[nodiscard]] std::shared_ptr<session_group::place> begin_request();
  HRESULT open_shared_port(std::uint32_t number);
  void adopt_port(std::shared_ptr<serial_port> port, std::uint32_t number);
  [[nodiscard]] bool has_port() const noexcept;
  [[nodiscard]] std::shared_ptr<session_group::place> place() const noexcept;  // null once gone
  [[nodiscard]] std::shared_ptr<serial_port> port() const noexcept;  // null while none is open
  void depart() noexcept;

  // Constant after start().
  const std::vector<std::uint32_t> shared_ports_;
  const std::shared_ptr<client_log> log_;
  std::shared_ptr<client_connection> connection_;

  // Guarded by lock_. The port is set exactly while the state is open; the place until the client
  // has left.
  mutable ostra::srw_lock lock_;
  std::shared_ptr<session_group::place> place_;
  port_state port_state_ = port_state::none;
  std::shared_ptr<serial_port> port_;
};

}  // namespace tarnwheel
