#include "client/bridge/program_acceptor.h"

#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

#include "async/errors.h"
#include "async/timer.h"
#include "async/within.h"
#include "console/utf8.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFarewell(500);
constexpr milliseconds kHandOver(2000);
constexpr milliseconds kPauseAfterFailure(100);
constexpr std::chrono::steady_clock::duration kDeviceHandOver = std::chrono::hours(1);  // each time

// Closing a connection with unread data may discard the line that gives the reason, so the
// program's data is read until it disconnects. The coroutine owns everything it uses, since its
// caller may give up sooner.
ostra::future<void> say_farewell(std::shared_ptr<byte_stream> program,
                                 std::vector<std::byte> line) {
  auto written = program->write(line);
  co_await written;
  program->finish();
  std::vector<std::byte> ignored(1024);
  std::size_t size = 0;
  do {
    auto read = program->read(ignored);
    size = co_await read;
  } while (size != 0);
}

}  // namespace

program_acceptor::program_acceptor(std::unique_ptr<stream_listener> listener, bool is_device,
                                   std::wstring port_name, arrival_handler arrived,
                                   failure_handler failed)
    : listener_(std::move(listener)),
      is_device_(is_device),
      port_name_(std::move(port_name)),
      arrived_(std::move(arrived)),
      failed_(std::move(failed)),
      accepting_(accept_programs()) {}

program_acceptor::~program_acceptor() {
  listener_->cancel();
  set_port(port_state::closing);
  accepting_.wait();
}

void program_acceptor::set_port(port_state state) {
  std::shared_ptr<byte_stream> dropped;
  {
    const std::lock_guard guard(lock_);
    state_ = state;
    dropped.swap(arrival_);
  }
  freed_.set();
}

std::shared_ptr<byte_stream> program_acceptor::take() {
  const std::lock_guard guard(lock_);
  return std::exchange(arrival_, nullptr);
}

// Goes on accepting, whatever happens to one program.
ostra::future<void> program_acceptor::accept_programs() {
  ostra::async_timer pause;
  for (;;) {
    bool failed = false;
    try {
      auto accepted = listener_->accept();
      auto program = co_await accepted;
      auto greeted = greet(std::move(program));
      co_await greeted;
    } catch (const ostra::operation_cancelled&) {
      co_return;
    } catch (const ostra::hresult_error&) {
      failed = true;  // the program has gone again
    } catch (const client_error& error) {
      failed = true;  // accept() fails again, in case this failure is discarded
      failed_(error);
    }
    if (failed) {
      auto pausing = pause.wait(kPauseAfterFailure);
      co_await pausing;
    }
  }
}

ostra::future<void> program_acceptor::greet(std::shared_ptr<byte_stream> program) {
  const auto deadline = std::chrono::steady_clock::now() + kHandOver;
  port_state found = hand_over(program);
  while (found == port_state::taken || (is_device_ && found == port_state::away)) {
    const auto left = is_device_ ? kDeviceHandOver : deadline - std::chrono::steady_clock::now();
    if (left <= left.zero())
      break;
    auto freed = freed_.wait_for(std::chrono::ceil<ostra::ticks>(left));
    co_await freed;
    found = hand_over(program);
  }
  if (found == port_state::ready || is_device_)
    co_return;
  const std::wstring_view reason = found == port_state::taken
                                       ? L" is in use by another program\r\n"
                                       : L" is not available at the moment\r\n";
  auto turned_away = turn_away(std::move(program), port_name_ + std::wstring(reason));
  co_await turned_away;
}

// Returns the port's state before the call; if that was ready, the program now has the port.
port_state program_acceptor::hand_over(const std::shared_ptr<byte_stream>& program) {
  const std::lock_guard guard(lock_);
  const port_state found = state_;
  if (found == port_state::ready) {
    state_ = port_state::taken;
    arrival_ = program;
    arrived_();
  }
  return found;
}

// A device's program cannot be sent away: its device is closed after a pause, and opened again.
ostra::future<void> program_acceptor::turn_away(std::shared_ptr<byte_stream> program,
                                                std::wstring reason) const {
  if (is_device_) {
    ostra::async_timer pause;
    auto pausing = pause.wait(kFarewell);
    co_await pausing;
    co_return;
  }
  try {
    auto farewell = ostra::within(say_farewell(program, console::to_utf8(reason)), kFarewell);
    co_await farewell;
  } catch (const ostra::hresult_error&) {
    // The program has gone, or the time limit has passed.
  }
  program->cancel();
}

}  // namespace tarnwheel::client
