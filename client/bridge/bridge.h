// A remote port, offered to programs of this machine one after another.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "client/bridge/bridge_session.h"
#include "client/line/line_session.h"
#include "client/streams/byte_stream.h"
#include "client/telnet/com_port_control.h"

namespace tarnwheel::client {

struct bridge_options {
  line_address line;
  bool telnet = false;          // or bytes alone
  bool device = false;          // the listener's streams are com_streams
  bool releases = false;        // gives the port back while no program is there
  bool keeps_settings = false;  // of one program for the next
  std::chrono::milliseconds idle_limit{
      0};  // a program that is silent for so long is cut off; 0: none
};

// Programs are taken from construction to destruction, and turned away with a line of text while
// another one has the port, or while there is none to have. A newcomer waits two seconds for its
// predecessor, which may have gone without the bridge being through with what it had sent. All else happens on the thread that
// calls run(), to which the pool's threads leave their news.
//
// A device is no such newcomer: it waits for as long as there is no port, gets no text, and a failure
// of its listener ends run().
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
  enum class availability { away, ready, taken, closing };

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
  [[nodiscard]] availability hand_over(const std::shared_ptr<byte_stream>& program);
  ostra::future<void> turn_away(std::shared_ptr<byte_stream> program, std::wstring reason);
  ostra::future<void> serve(std::shared_ptr<bridge_session> session);

  [[nodiscard]] bool wait_for_news(HANDLE stop);
  [[nodiscard]] DWORD until_idle();
  void handle_line_end();
  void handle(arrivals present);
  void open_line();
  void restore_line();
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
  bool is_used_ = false;  // the line, by a program that is there or has gone
  ostra::future<void> serving_;
  std::wstring peer_;
  std::wstring departed_;  // the peer that has gone and is not told of yet
  std::wstring told_;      // the last failure, since a program had the port

  ostra::auto_reset_event freed_;  // set when the availability changes

  // Guarded by lock_.
  ostra::srw_lock lock_;
  availability availability_ = availability::away;
  arrivals arrivals_;
  std::shared_ptr<bridge_session> session_;

  ostra::future<void> accepting_;  // last: it uses the others from its start
};

}  // namespace tarnwheel::client
