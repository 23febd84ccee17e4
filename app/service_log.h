// The log of the service.
#pragma once

#include "log/log.h"
#include "log/logger.h"
#include "log/null_logger.h"
#include "settings/abstract_folder.h"

namespace tarnwheel {

// While it lives, publishes a logger that writes to the file that the parameters name; the
// destructor waits until everything logged has been written. Without a LogPath nothing is logged. A
// log that cannot be opened or written is reported in the system's event log; the service runs
// without it.
class service_log {
 public:
  // Throws folder_creation_error when the parameters cannot be read, and std::bad_alloc.
  explicit service_log(Tamrin::setman::abstract_folder& parameters);
  service_log(const service_log&) = delete;
  service_log& operator=(const service_log&) = delete;
  ~service_log();

 private:
  logging::null_logger silent_;
  logging::Logger logger_;
  std::optional<logging::process_logger> published_;
};

}  // namespace tarnwheel
