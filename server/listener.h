// Accepts the clients of the server's pipe.
#pragma once

#include <memory>
#include <vector>

#include "async/cancellation.h"
#include "async/future.h"
#include "async/timer.h"
#include "rpc/pipe_transport.h"
#include "rpc/security_descriptor.h"
#include "server/session_group.h"

namespace tarnwheel {

// Keeps several instances of the pipe listening, each with an acceptor coroutine of its own, so
// that a client finds one even while another client's connection is being taken over. Each instance
// that a client has taken is replaced before its session starts.
//
// Whatever befalls one client (it leaves before it is accepted, its session cannot be made) costs
// that client only. When a further instance cannot be made, because the system's 255 are in use or
// the descriptor does not let this account create more, the acceptor says so in the log and tries
// again after a pause.
//
// Constant after construction; the acceptors hold it.
class listener : public std::enable_shared_from_this<listener> {
 public:
  listener(tether::security_descriptor security, std::vector<std::uint32_t> shared_ports,
           ostra::cancellation_source cancellation, std::shared_ptr<session_group> sessions);

  // Makes the pipe and starts the acceptors. Throws hresult_error when the pipe cannot be made. The
  // future completes when the cancellation has ended all of them; the sessions go on.
  [[nodiscard]] ostra::future<void> start();

 private:
  using pipe_instance = std::shared_ptr<tether::PipeTransport>;

  [[nodiscard]] pipe_instance make_instance() const;
  ostra::future<void> run(pipe_instance first,
                          std::vector<std::unique_ptr<ostra::auto_cancel_timer>> pauses) const;

  // Pauses after a failure. The timer for that is made at the start: when the system runs out of
  // resources a new one might be just what it cannot give.
  ostra::future<void> accept(pipe_instance listening, ostra::auto_cancel_timer& pause) const;

  // Waits for a client on `listening`, or on a new instance when that is null, and puts the next
  // instance there before it starts the client's session. `listening` is the acceptor's.
  ostra::future<void> accept_one(pipe_instance& listening) const;

  const tether::security_descriptor security_;
  const std::vector<std::uint32_t> shared_ports_;
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_;
  const std::shared_ptr<session_group> sessions_;
};

}  // namespace tarnwheel
