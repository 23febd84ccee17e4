#include <new>
#include <utility>

#include "async/cancellation.h"
#include "async/errors.h"
#include "async/handle_wait.h"
#include "log/log.h"
#include "server/discovery.h"
#include "server/listener.h"
#include "server/server.h"
#include "server/session_group.h"
#include "server/stop_event.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

class server_impl final : public server {
 public:
  explicit server_impl(std::shared_ptr<Tamrin::setman::abstract_folder> parameters)
      : parameters_(std::move(parameters)) {}

  ostra::future<void> run() override {
    auto running = serve();
    if (running.is_complete())
      running.get();  // a start that failed did so before it suspended
    return running;
  }

  void stop() override { ::SetEvent(stop_event_.get()); }

 private:
  using server_parameters = Tamrin::setman::server_parameters;

  ostra::future<void> serve();
  [[nodiscard]] server_parameters read_parameters() const;
  [[nodiscard]] std::shared_ptr<listener> make_listener(const server_parameters& parameters) const;
  ostra::future<void> run_discovery(bool enabled) const;

  // Constant after construction.
  const std::shared_ptr<Tamrin::setman::abstract_folder> parameters_;
  const Tamrin::unique_handle stop_event_ = create_stop_event();
  const std::shared_ptr<session_group> sessions_ = std::make_shared<session_group>();

  // Synchronises itself. Reaches the acceptors, and every session through its transport.
  const ostra::cancellation_source cancellation_;
};

Tamrin::setman::server_parameters server_impl::read_parameters() const {
  server_parameters parameters;
  ostra::details::check_hresult(Tamrin::setman::read_server_parameters(*parameters_, parameters));
  return parameters;
}

std::shared_ptr<listener> server_impl::make_listener(const server_parameters& parameters) const {
  logging::write(logging::info, L"Starting server with security descriptor \"{0}\"...",
                 parameters.security_descriptor);
  auto security = tether::security_descriptor::from_sddl(parameters.security_descriptor);
  return std::make_shared<listener>(std::move(security), parameters.shared_ports, cancellation_,
                                    sessions_);
}

// The server works without discovery, so a failure of it ends here.
ostra::future<void> server_impl::run_discovery(bool enabled) const {
  HRESULT outcome = S_OK;
  try {
    auto discovery = discover(enabled, cancellation_);
    co_await discovery;
  } catch (const ostra::hresult_error& error) {
    outcome = error.code();
  } catch (const std::bad_alloc&) {
    outcome = E_OUTOFMEMORY;
  }
  if (FAILED(outcome))
    logging::write(logging::error, L"Error starting auto-discovery {0ub016xp}", outcome);
}

ostra::future<void> server_impl::serve() {
  ostra::details::check_bool(::ResetEvent(stop_event_.get()));
  ostra::handle_wait stop_requested(stop_event_.get());
  const server_parameters parameters = read_parameters();
  const auto listening = make_listener(parameters);
  auto acceptors = listening->start();
  auto discovery = run_discovery(parameters.auto_discovery);
  co_await stop_requested;
  cancellation_.cancel();
  co_await acceptors;
  co_await discovery;
  auto departed = sessions_->departed();
  co_await departed;
}

}  // namespace

std::unique_ptr<server> create_server(std::shared_ptr<Tamrin::setman::abstract_folder> parameters) {
  return std::make_unique<server_impl>(std::move(parameters));
}

}  // namespace tarnwheel
