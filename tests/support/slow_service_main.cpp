// The service host around a server that takes its time to stop: more than three seconds, in which
// the service's checkpoints can be watched. Registered by the tests in the place of the real one.
#include <atomic>
#include <chrono>

#include "app/service_host.h"
#include "async/errors.h"
#include "async/timer.h"

namespace {

using namespace std::chrono_literals;

class SlowServer final : public tarnwheel::server {
 public:
  ostra::future<void> run() override {
    const Tamrin::unique_handle stopped(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    stopped_ = stopped.get();
    ostra::handle_wait stop(stopped_);
    co_await stop;
    ostra::async_timer timer;
    auto drain = timer.wait(3500ms);
    co_await drain;
  }

  void stop() override { ::SetEvent(stopped_); }

 private:
  std::atomic<HANDLE> stopped_ = nullptr;
};

std::unique_ptr<tarnwheel::server> create(std::shared_ptr<Tamrin::setman::abstract_folder>) {
  return std::make_unique<SlowServer>();
}

}  // namespace

int main() {
  return static_cast<int>(tarnwheel::run_service(&create));
}
