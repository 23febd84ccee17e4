// A remote port, offered to local or network programs one after another.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/bridge/bridge_session.h"
#include "client/bridge/program_acceptor.h"
#include "client/line/line_session.h"
#include "client/streams/byte_stream.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

struct bridge_options {
  line_address line;
  bool telnet = false;          // false: bytes alone
  bool device = false;          // the listener's streams are com_streams
  bool releases = false;        // closes the port while no program is connected
  bool keeps_settings = false;  // a program inherits its predecessor's
  // A program that is idle for this long is disconnected; 0: no limit.
  std::chrono::milliseconds idle_limit{0};
};

// Accepts programs from construction to destruction; the port is theirs while run() serves.
// Everything else happens on the thread that calls run(), to which pool threads post their news. A
// failure of a device's listener ends run().
class bridge final : private line_session {
 public:
  // Throws hresult_error.
  bridge(bridge_options options, std::unique_ptr<stream_listener> listener);
  bridge(const bridge&) = delete;
  bridge& operator=(const bridge&) = delete;

  // Opens the port, calls `ready`, and serves until `stop` is signalled; then returns. Throws
  // client_error when the port cannot be opened or is lost, and may then be called again. With
  // `releases` the port is opened for each program, such a failure ends only that program's
  // session, and the bridge goes on.
  void run(HANDLE stop, const std::function<void()>& ready);

 private:
  // Closes everything at the end of run().
  struct withdrawal {
    bridge& self;
    ~withdrawal();
  };

  ostra::future<void> serve(std::shared_ptr<bridge_session> session);

  [[nodiscard]] bool wait_for_news(HANDLE stop);
  [[nodiscard]] DWORD until_idle(const bridge_session& present) const;
  void handle_line_end();
  void handle_departure();
  void open_line();
  void restore_line();
  void close_line();
  void begin_session(std::shared_ptr<byte_stream> program);
  void end_session();
  void report(const client_error& reason);
  // Printed only when the port is free: a reader of the message may start the next program at once.
  void report_departure();
  [[nodiscard]] std::shared_ptr<bridge_session> session();

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t events) override;

  // Constant after construction.
  const bridge_options options_;
  const std::wstring name_;

  // Used only by the thread that calls run().
  std::unique_ptr<remote_line> line_;
  com_port_settings settings_;
  bool is_used_ = false;  // the line has served a program, present or past
  ostra::future<void> serving_;
  std::wstring peer_;
  std::wstring departed_;  // the peer whose departure is still to be printed
  std::wstring reported_;  // the last failure reported since a program had the port

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::shared_ptr<bridge_session> session_;
  bool program_has_gone_ = false;

  program_acceptor programs_;  // last: it notifies this object from its start
};

}  // namespace tarnwheel::client
