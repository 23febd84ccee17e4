// Gives the programs that connect to a bridge its port, one at a time.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "client/line/client_error.h"
#include "client/streams/byte_stream.h"

namespace tarnwheel::client {

enum class port_state {
  away,     // no program can have it
  ready,    // the next program gets it
  taken,    // a program has it
  closing,  // the acceptor is being destroyed
};

// Accepts programs from construction to destruction, and turns them away with a line of text while
// another one has the port, or the port is not available. A newcomer first waits up to two seconds
// for its predecessor, whose bytes may still be on their way after it has gone.
//
// A device is an exception: it waits for as long as there is no port, and gets no text.
//
// One coroutine accepts, and the destructor waits for it. A program is handed over under lock_,
// together with the change of the state, so set_port() always finds a program that the previous
// state let in and nobody has taken.
class program_acceptor {
 public:
  // Called on pool threads: when there is a program to take (with lock_ held), and for each failure
  // of the listener that ends the bridge.
  using arrival_handler = std::function<void()>;
  using failure_handler = std::function<void(const client_error&)>;

  // The port is `away` at first. The handlers must neither throw nor call this object. Throws
  // hresult_error.
  program_acceptor(std::unique_ptr<stream_listener> listener, bool is_device,
                   std::wstring port_name, arrival_handler arrived, failure_handler failed);
  program_acceptor(const program_acceptor&) = delete;
  program_acceptor& operator=(const program_acceptor&) = delete;
  // Waits until no handler runs or will run.
  ~program_acceptor();

  // While the port is `ready`, the next program makes it `taken`. A program that has not been taken
  // yet is dropped. Any thread.
  void set_port(port_state state);

  // The program that has the port, once; null when there is none. Any thread.
  [[nodiscard]] std::shared_ptr<byte_stream> take();

  // Sends a program away with the reason, which ends in a line feed; a device gets a pause instead.
  // Takes half a second at most. Must complete before this is destroyed.
  [[nodiscard]] ostra::future<void> turn_away(std::shared_ptr<byte_stream> program,
                                              std::wstring reason) const;

 private:
  ostra::future<void> accept_programs();
  ostra::future<void> greet(std::shared_ptr<byte_stream> program);
  [[nodiscard]] port_state hand_over(const std::shared_ptr<byte_stream>& program);

  // Constant after construction.
  const std::unique_ptr<stream_listener> listener_;
  const bool is_device_;
  const std::wstring port_name_;
  const arrival_handler arrived_;
  const failure_handler failed_;

  ostra::auto_reset_event freed_;  // set when the state changes

  // Guarded by lock_.
  ostra::srw_lock lock_;
  port_state state_ = port_state::away;
  std::shared_ptr<byte_stream> arrival_;

  ostra::future<void> accepting_;  // last: it uses the other members from its start
};

}  // namespace tarnwheel::client
