// Accepts the clients of the server's pipe.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "async/cancellation.h"
#include "async/future.h"
#include "async/timer.h"
#include "rpc/pipe_transport.h"
#include "rpc/security_descriptor.h"
#include "server/session_group.h"

namespace tarnwheel {

// Keeps several instances of the pipe listening, each with its own acceptor coroutine, so that a
// client finds one even while another client is being accepted. Each instance that a client has
// taken is replaced before its session starts, as long as there are places. When every place is
// taken no instance listens, and Windows tells further clients that the pipe is busy.
//
// The first instance must be the first of its name on the machine, or another program's descriptor
// would guard the pipe. With a descriptor that does not let the server's own account create further
// instances, the server has one instance, and so serves one client at a time.
//
// A failure with one client (it leaves before it is accepted, its session cannot be created)
// affects that client only. When a further instance cannot be created, the acceptor logs that and
// retries after a pause.
//
// Owned by its acceptors.
class listener : public std::enable_shared_from_this<listener> {
 public:
  listener(tether::security_descriptor security, std::vector<std::uint32_t> shared_ports,
           ostra::cancellation_source cancellation, std::shared_ptr<session_group> sessions);

  // Creates the pipe and starts the acceptors. Throws hresult_error when the pipe cannot be
  // created, and any error that keeps an acceptor from starting, once the acceptors already started
  // have ended, which may block for a moment. The future completes when the cancellation has ended
  // all acceptors; the sessions go on.
  [[nodiscard]] ostra::future<void> start();

 private:
  // A listening instance and its place.
  struct endpoint {
    session_group::place place;
    std::shared_ptr<tether::PipeTransport> pipe;
  };
  using next_endpoint = std::optional<endpoint>;

  [[nodiscard]] std::shared_ptr<tether::PipeTransport> make_instance(bool is_first) const;
  void make_first(next_endpoint& first);
  void make_second(next_endpoint& second);

  // Runs one acceptor. `next` is the instance that it begins with, if already created.
  ostra::future<void> accept(next_endpoint next);

  // Waits for a client on `next`, or on a new instance when there is none, and replaces it by
  // another instance before it starts the client's session.
  ostra::future<void> accept_one(next_endpoint& next);
  ostra::future<session_group::place> take_place();

  // Constant once started. has_one_: the descriptor allows only one instance.
  const tether::security_descriptor security_;
  const std::vector<std::uint32_t> shared_ports_;
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_;
  const std::shared_ptr<session_group> sessions_;
  bool has_one_ = false;

  std::atomic<std::size_t> waiting_ = 0;  // acceptors that wait for a place
};

}  // namespace tarnwheel
