#include <chrono>
#include <new>
#include <utility>

#include "async/cancellation.h"
#include "async/errors.h"
#include "async/handle_wait.h"
#include "log/log.h"
#include "server/announcement.h"
#include "server/discovery.h"
#include "server/listener.h"
#include "server/server.h"
#include "server/session_group.h"
#include "server/stop_event.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

// As many clients as a machine can carry even if each takes the most memory that it may;
// well-behaved ones take a few kilobytes each.
constexpr std::size_t kMaxSessions = 100;

// For the sessions to close their ports once the stop has been requested. Shorter than the time
// that a closing console leaves its program.
constexpr std::chrono::seconds kDepartureLimit(3);

class server_impl final : public server {
 public:
  explicit server_impl(std::shared_ptr<Tamrin::setman::abstract_folder> parameters)
      : parameters_(std::move(parameters)) {}

  ostra::future<void> run() override {
    try {
      auto running = serve();
      if (running.is_complete())
        running.get();  // a failed start fails before it suspends
      return running;
    } catch (const std::bad_alloc&) {
      throw ostra::hresult_error(E_OUTOFMEMORY);
    }
  }

  void stop() override { ::SetEvent(stop_event_.get()); }

 private:
  using server_parameters = Tamrin::setman::server_parameters;

  // The parts that run from the start to the stop. When the start fails halfway, the destructor
  // ends those that have been started and waits for them.
  struct work {
    explicit work(const server_impl& owner) noexcept : server(owner) {}
    work(const work&) = delete;
    work& operator=(const work&) = delete;
    ~work();

    const server_impl& server;
    ostra::future<void> acceptors;
    ostra::future<void> discovery;
  };

  ostra::future<void> serve();
  void end_work() const noexcept;
  void log_remaining_sessions() const;
  [[nodiscard]] server_parameters read_parameters() const;
  [[nodiscard]] std::shared_ptr<listener> make_listener(const server_parameters& parameters) const;
  ostra::future<void> run_discovery(bool enabled) const;

  // Constant after construction.
  const std::shared_ptr<Tamrin::setman::abstract_folder> parameters_;
  const Tamrin::unique_handle stop_event_ = create_stop_event();
  const std::shared_ptr<session_group> sessions_ = std::make_shared<session_group>(kMaxSessions);

  // Internally synchronised. Cancels the acceptors, and every session through its transport.
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

// The server works without discovery, so its failures end here.
ostra::future<void> server_impl::run_discovery(bool enabled) const {
  HRESULT outcome = S_OK;
  ostra::future<void> announced;
  try {
    auto discovery = discover(enabled, cancellation_);
    if (enabled)
      announced = announce(cancellation_.token());
    co_await discovery;
  } catch (...) {
    outcome = ostra::details::current_hresult();
  }
  if (FAILED(outcome))
    logging::write(logging::error, L"Error starting auto-discovery {0ub016xp}", outcome);
  if (announced.valid())
    co_await announced;
}

server_impl::work::~work() {
  server.end_work();
  for (const auto& part : {acceptors, discovery}) {
    if (part.valid())
      part.wait();
  }
}

void server_impl::end_work() const noexcept {
  cancellation_.cancel();
  sessions_->close();
}

ostra::future<void> server_impl::serve() {
  ostra::details::check_bool(::ResetEvent(stop_event_.get()));
  ostra::handle_wait stop_requested(stop_event_.get());
  const server_parameters parameters = read_parameters();
  const auto listening = make_listener(parameters);
  work parts(*this);
  parts.acceptors = listening->start();
  parts.discovery = run_discovery(parameters.auto_discovery);
  co_await stop_requested;
  end_work();
  auto departed = sessions_->departed(kDepartureLimit);
  co_await parts.acceptors;
  co_await parts.discovery;
  const bool all_left = co_await departed;
  if (!all_left)
    log_remaining_sessions();
}

// A driver that does not return from a call ends only with the process.
void server_impl::log_remaining_sessions() const {
  for (const std::uint32_t port : sessions_->ports()) {
    if (port != 0) {
      logging::write(logging::warning,
                     L"The driver of COM{0} does not release it; the server ends without it", port);
    } else {
      logging::write(logging::warning,
                     L"A client's request is still running; the server ends without it");
    }
  }
}

}  // namespace

std::unique_ptr<server> create_server(std::shared_ptr<Tamrin::setman::abstract_folder> parameters) {
  return std::make_unique<server_impl>(std::move(parameters));
}

}  // namespace tarnwheel
