#include "app/service_host.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "app/event_log.h"
#include "app/log_lines.h"
#include "app/service_log.h"
#include "app/service_registration.h"
#include "app/version_info.h"
#include "async/cancellation.h"
#include "async/errors.h"
#include "async/future.h"
#include "async/timer.h"
#include "log/log.h"
#include "server/server.h"
#include "settings/folder_creation_error.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

constexpr DWORD kWaitHint = 15000;  // milliseconds
constexpr std::chrono::seconds kCheckpointInterval(1);

server_factory make_server = nullptr;  // set before the dispatcher runs

// One run of the service. The control handler runs on the dispatcher's thread, everything after the
// start on pool threads. Lives until the process ends or the service is started again in it, which
// the service control manager does only after the stop.
//
// supervise() starts the server, so none runs unsupervised. Whatever ends the run, a control or the
// global stop event, supervise() ends the checkpoints, destroys the server and, last of all,
// reports the stop. Status reports and calls to the server are made under lock_, and dropped from
// then on.
class service_context {
 public:
  void start();

 private:
  static DWORD WINAPI on_control(DWORD control, DWORD type, void* data, void* context);

  ostra::future<void> supervise();
  [[nodiscard]] ostra::future<void> run_server();
  void request_stop();
  ostra::future<void> report_checkpoints();
  [[nodiscard]] ostra::future<void> end_checkpoints();
  void report_stopped();

  void report(DWORD state, DWORD checkpoint);
  void report_locked(DWORD state, DWORD checkpoint) const noexcept;

  // Constant after the start.
  SERVICE_STATUS_HANDLE status_ = nullptr;
  const ostra::cancellation_source checkpoints_ended_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::unique_ptr<server> server_;
  ostra::future<void> checkpoints_;
  bool stopped_ = false;

  // Used only by supervise(), which destroys it before it reports the stop.
  std::unique_ptr<service_log> log_;
};

// Not destroyed when the process ends, since pool threads may still be running.
service_context* current = nullptr;

void service_context::start() {
  status_ = ::RegisterServiceCtrlHandlerExW(kServiceName, &on_control, this);
  report(SERVICE_START_PENDING, 0);
  try {
    static_cast<void>(supervise());
  } catch (...) {
    report_stopped();  // out of memory; nothing has been started
  }
}

// Nothing can fail once the server runs.
ostra::future<void> service_context::run_server() {
  const auto version = read_product_version();
  const auto parameters = Tamrin::setman::open_parameters_folder(version.major, version.minor);
  log_ = std::make_unique<service_log>(*parameters);
  logging::write(logging::debug, kLogInitialized);
  auto created = make_server(parameters);
  auto running = created->run();
  {
    const std::lock_guard guard(lock_);
    server_ = std::move(created);
  }
  report(SERVICE_RUNNING, 0);
  logging::write(logging::info, kServerStarted);
  return running;
}

DWORD WINAPI service_context::on_control(DWORD control, DWORD, void*, void* context) {
  switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
      static_cast<service_context*>(context)->request_stop();
      return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
      return NO_ERROR;
    default:
      return ERROR_CALL_NOT_IMPLEMENTED;
  }
}

void service_context::request_stop() {
  report(SERVICE_STOP_PENDING, 0);
  logging::write(logging::debug, kServerStopping);
  const std::lock_guard guard(lock_);
  if (!server_)
    return;
  try {
    if (!checkpoints_.valid())
      checkpoints_ = report_checkpoints();
  } catch (...) {
    // Out of memory: the stop goes on without checkpoints.
  }
  server_->stop();
}

ostra::future<void> service_context::supervise() {
  auto report_failure = &report_failed_start;
  HRESULT failure = S_OK;
  try {
    auto running = run_server();
    report_failure = &report_failed_run;
    co_await running;
    logging::write(logging::info, kServerStopped);
  } catch (const Tamrin::setman::folder_creation_error& error) {
    failure = ostra::details::to_hresult(error.error());
  } catch (...) {
    failure = ostra::details::current_hresult();
  }
  log_.reset();
  if (FAILED(failure))
    report_failure(failure);
  checkpoints_ended_.cancel();
  auto checkpoints = end_checkpoints();
  if (checkpoints.valid())
    co_await checkpoints;
  report_stopped();
}

ostra::future<void> service_context::report_checkpoints() {
  try {
    ostra::auto_cancel_timer timer(checkpoints_ended_.token());
    for (DWORD checkpoint = 1;; ++checkpoint) {
      auto interval = timer.wait(kCheckpointInterval);
      co_await interval;
      report(SERVICE_STOP_PENDING, checkpoint);
    }
  } catch (...) {
    // The stop is complete, or goes on without further checkpoints.
  }
}

// Takes the checkpoints and destroys the server, so that no later control starts new ones.
ostra::future<void> service_context::end_checkpoints() {
  std::unique_ptr<server> ended;
  const std::lock_guard guard(lock_);
  ended = std::move(server_);
  return std::exchange(checkpoints_, {});
}

void service_context::report_stopped() {
  const std::lock_guard guard(lock_);
  report_locked(SERVICE_STOPPED, 0);
  stopped_ = true;
}

void service_context::report(DWORD state, DWORD checkpoint) {
  const std::lock_guard guard(lock_);
  if (!stopped_)
    report_locked(state, checkpoint);
}

void service_context::report_locked(DWORD state, DWORD checkpoint) const noexcept {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwCheckPoint = checkpoint;
  if (state == SERVICE_RUNNING)
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;
  else if (state != SERVICE_STOPPED)
    status.dwWaitHint = kWaitHint;
  ::SetServiceStatus(status_, &status);
}

void WINAPI service_main(DWORD, wchar_t**) {
  delete std::exchange(current, nullptr);
  current = new service_context;
  current->start();
}

// Only for Wine, where the dispatcher of a process that is not a service mistakes the control pipe
// of the service started last for its own, and waits ten seconds for it while that service runs.
// Wine starts services on a separate desktop, which tells them from programs run by hand.
bool is_interactive_under_wine() noexcept {
  constexpr std::wstring_view kServiceDesktop = L"__wineservice_winstation";
  if (::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr)
    return false;
  STARTUPINFOW startup = {};
  ::GetStartupInfoW(&startup);
  const std::wstring_view desktop = startup.lpDesktop == nullptr ? L"" : startup.lpDesktop;
  return !desktop.starts_with(kServiceDesktop);
}

}  // namespace

DWORD run_service(server_factory create) {
  if (is_interactive_under_wine())
    return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
  make_server = create;
  std::wstring name = kServiceName;
  const SERVICE_TABLE_ENTRYW table[] = {{name.data(), &service_main}, {nullptr, nullptr}};
  return ::StartServiceCtrlDispatcherW(table) ? ERROR_SUCCESS : ::GetLastError();
}

}  // namespace tarnwheel
