// Shared by the tests of the server.
#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "async/errors.h"
#include "log/ilogger.h"
#include "server/server.h"
#include "settings/directory.h"
#include "settings/file_storage.h"
#include "settings/server_parameters.h"

namespace tarnwheel::test {

// Keeps the lines that it is given, of every level.
class Recorder final : public logging::ILogger {
 public:
  bool initialize(std::wstring_view, bool, std::int32_t) override { return true; }
  void log(const std::wstring_view& message, std::int32_t) override { Add(std::wstring(message)); }
  void log(std::wstring&& message, std::int32_t) override { Add(std::exchange(message, {})); }
  void stop() override {}

  // How many lines have `part` in them.
  std::ptrdiff_t Count(std::wstring_view part) {
    const std::lock_guard guard(lock_);
    return std::ranges::count_if(
        lines_, [&](const auto& line) { return line.find(part) != std::wstring::npos; });
  }

  // True when that many lines have it within ten seconds.
  bool Eventually(std::wstring_view part, std::ptrdiff_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Count(part) != count) {
      if (std::chrono::steady_clock::now() > deadline)
        return false;
      std::this_thread::yield();
    }
    return true;
  }

  std::vector<std::wstring> Lines() {
    const std::lock_guard guard(lock_);
    return lines_;
  }

 private:
  void Add(std::wstring line) {
    const std::lock_guard guard(lock_);
    lines_.push_back(std::move(line));
  }

  std::mutex lock_;
  std::vector<std::wstring> lines_;
};

// A server whose parameters are in memory; everybody may connect.
inline std::unique_ptr<server> make_server(bool auto_discovery) {
  auto folder =
      std::make_shared<Tamrin::setman::file_storage>(std::make_shared<Tamrin::setman::directory>());
  const Tamrin::setman::server_parameters parameters = {L"D:(A;;GA;;;WD)", auto_discovery, {}};
  ostra::details::check_hresult(Tamrin::setman::write_server_parameters(*folder, parameters));
  return create_server(std::move(folder));
}

}  // namespace tarnwheel::test
