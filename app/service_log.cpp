#include "app/service_log.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "app/event_log.h"
#include "async/errors.h"
#include "settings/server_parameters.h"

namespace tarnwheel {
namespace {

namespace setman = Tamrin::setman;

// Throws hresult_error when the log cannot be opened.
void open_log(logging::Logger& logger, const std::wstring& path, std::int32_t level) {
  if (!logger.initialize(path, false, level))
    ostra::details::throw_last_error();
}

std::int32_t read_level(setman::abstract_folder& parameters) {
  std::int32_t level = logging::info;
  if (!parameters.read_value(setman::kLogLevelName, &level, sizeof level))
    return logging::info;
  return std::clamp<std::int32_t>(level, logging::critical, logging::debug);
}

}  // namespace

service_log::service_log(setman::abstract_folder& parameters) {
  const auto path = parameters.read_string(setman::kLogPathName);
  const std::int32_t level = read_level(parameters);
  if (path && !path->empty()) {
    try {
      open_log(logger_, *path, level);
      published_.emplace(logger_, level);
      return;
    } catch (const ostra::hresult_error& error) {
      report_failed_log(error.code());
    }
  }
  published_.emplace(silent_, logging::kKeepNothing);
}

service_log::~service_log() {
  published_.reset();
  try {
    logger_.stop();
  } catch (const ostra::hresult_error& error) {
    report_failed_log(error.code());
  }
}

}  // namespace tarnwheel
