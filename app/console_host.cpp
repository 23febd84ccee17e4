#include "app/console_host.h"

#include <memory>
#include <optional>
#include <utility>

#include "app/log_lines.h"
#include "app/options.h"
#include "app/screen_text.h"
#include "async/errors.h"
#include "async/future.h"
#include "console/control_events.h"
#include "log/log.h"
#include "log/logger.h"
#include "server/server.h"
#include "settings/directory.h"
#include "settings/file_storage.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

namespace setman = Tamrin::setman;

constexpr wchar_t kLogFailed[] =
    L"Error initializing logging system. Check that the log file path is correct and sufficient "
    L"rights to access it are available to the current user.\n"
    L"This is a critical error. The server will now quit.";

bool initialize_log(logging::ILogger& logger, const Tamrin::server_options& options) {
  try {
    return logger.initialize(options.log_path, options.screen_log, options.log_level);
  } catch (...) {
    return false;  // the file was opened but cannot be written, or there is no memory
  }
}

std::shared_ptr<setman::abstract_folder> parameters_of(const Tamrin::server_options& options) {
  setman::server_parameters parameters;
  parameters.security_descriptor = options.security_descriptor;
  parameters.auto_discovery = options.discovery;
  parameters.shared_ports = options.shared_ports;
  auto folder = std::make_shared<setman::file_storage>(std::make_shared<setman::directory>());
  ostra::details::check_hresult(setman::write_server_parameters(*folder, parameters));
  return folder;
}

// The run of a server from its start to its end. However the scope is left, the destructor stops
// the server and returns when the run has ended.
class server_run {
 public:
  explicit server_run(server& server) : server_(server), run_(server.run()) {}
  server_run(const server_run&) = delete;
  server_run& operator=(const server_run&) = delete;
  ~server_run() {
    if (!run_.is_complete())
      server_.stop();
    run_.wait();
  }

  // Throws the error that ended the run, if any.
  void wait_for_end() const { run_.get(); }

 private:
  server& server_;
  const ostra::future<void> run_;
};

void serve(const Tamrin::server_options& options) {
  const auto server = create_server(parameters_of(options));
  const server_run running(*server);
  logging::write(logging::info, kServerStarted);
  const console::control_handler stop([&server](DWORD) {
    logging::write(logging::debug, kServerStopping);
    server->stop();
    return true;
  });
  running.wait_for_end();
}

// Reports on the screen that the log ended early, which the log itself cannot contain.
void stop_log(logging::ILogger& logger) {
  try {
    logger.stop();
  } catch (...) {
    print_error(
        tfmt::format(L"Error writing the log file {0ub016xp}", ostra::details::current_hresult()));
  }
}

}  // namespace

int run_console_server(const Tamrin::command_line& line) {
  if (!line.at(Tamrin::option_names::kNoLogo).flag())
    print_logo();
  const auto options = Tamrin::read_server_options(line);
  const console::control_events events;  // until the log is complete
  logging::Logger logger;
  if (!initialize_log(logger, options)) {
    print_error(kLogFailed);
    return E_ABORT;
  }
  HRESULT outcome = S_OK;
  {
    const bool keeps_lines = options.screen_log || !options.log_path.empty();
    const logging::process_logger published(
        logger, keeps_lines ? options.log_level : logging::kKeepNothing);
    logging::write(logging::debug, kLogInitialized);
    try {
      serve(options);
      logging::write(logging::info, kServerStopped);
    } catch (...) {
      outcome = ostra::details::current_hresult();
      print_start_error(outcome);
    }
  }
  stop_log(logger);
  return outcome;
}

}  // namespace tarnwheel
