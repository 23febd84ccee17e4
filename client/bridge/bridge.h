// A remote port, offered to programs of this machine one after another.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "async/future.h"
#include "async/srw_lock.h"
#include "client/bridge/bridge_session.h"
#include "client/line/line_session.h"
#include "client/streams/byte_stream.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

struct bridge_options {
  line_address line;
  bool telnet = false;    // or bytes alone
  bool releases = false;  // gives the port back while no program is there
};

// Programs are taken from construction to destruction, and turned away with a line of text while
// another one has the port, or while there is none to have. All else happens on the thread that
// calls run(), to which the pool's threads leave their news.
class bridge final : private line_session {
 public:
  // Throws client_error. `listener` is for this alone.
  bridge(bridge_options options, std::unique_ptr<stream_listener> listener);
  bridge(const bridge&) = delete;
  bridge& operator=(const bridge&) = delete;
  ~bridge();

  // Opens the port, calls `ready`, and serves until `stop` is signalled; then returns. Throws
  // client_error when the port cannot be had or is lost, and may be called again then. With
  // `releases` that happens to one program at a time, and the bridge goes on.
  void run(HANDLE stop, const std::function<void()>& ready);

 private:
  enum class availability { away, ready, taken };

  // News besides the end of the line.
  struct arrivals {
    std::shared_ptr<byte_stream> program;
    bool program_has_gone = false;
  };

  // Closes everything at the end of run().
  struct withdrawal {
    bridge& self;
    ~withdrawal();
  };

  ostra::future<void> accept_programs();
  ostra::future<void> greet(std::shared_ptr<byte_stream> program);
  ostra::future<void> turn_away(std::shared_ptr<byte_stream> program, std::wstring reason);
  ostra::future<void> serve(std::shared_ptr<bridge_session> session);

  void handle_line_end();
  void handle(arrivals present);
  void open_line();
  void close_line();
  void begin_session(std::shared_ptr<byte_stream> program);
  void end_session();
  void tell(const client_error& reason);
  void make_available(availability now);
  // Told only when the port is free: whoever reads it may send the next program.
  void tell_departure();
  [[nodiscard]] std::shared_ptr<bridge_session> session();

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t events) override;

  // Constant after construction.
  const bridge_options options_;
  const std::wstring name_;
  const std::unique_ptr<stream_listener> listener_;

  // Of the thread that calls run().
  std::unique_ptr<remote_line> line_;
  com_port_settings settings_;
  ostra::future<void> serving_;
  std::wstring peer_;
  std::wstring departed_;  // the peer that has gone and is not told of yet

  // Guarded by lock_.
  ostra::srw_lock lock_;
  availability availability_ = availability::away;
  arrivals arrivals_;
  std::shared_ptr<bridge_session> session_;

  ostra::future<void> accepting_;  // last: it uses the others from its start
};

}  // namespace tarnwheel::client
