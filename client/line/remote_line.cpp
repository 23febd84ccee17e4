#include "client/line/remote_line.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint32_t kMaxRead = 16 * 1024;  // bytes
constexpr ULONG kDriverQueue = 64 * 1024;      // bytes, in each direction
constexpr milliseconds kPauseBetweenReads(20);

// Not five seconds: Wine's pool threads retire after being idle for that long, and a thread that
// retires while the answer to its read arrives loses it.
constexpr milliseconds kHeartbeat(3000);
constexpr milliseconds kHeartbeatLimit(10'000);

}  // namespace

remote_line::remote_line(const line_address& address)
    : limits_(address.limits),
      server_(address.server, address.pipe),
      name_(server_.open_port(address.port, address.stop)),
      controls_(server_, name_),
      output_(server_, controls_, name_) {
  static_cast<void>(controls_.set_queue_size(kDriverQueue));  // the device may refuse it
  controls_.set_read_limit(limits_.driver).get();
  controls_.set_line(address.settings).get();
}

remote_line::~remote_line() {
  hang_up();
  for (const auto& coroutine : running_)
    coroutine.wait();
}

void remote_line::start(line_receiver& receiver, std::uint32_t events) {
  receiver_ = &receiver;
  running_.push_back(watch_connection());
  running_.push_back(watch_output());
  running_.push_back(watch_device());
  running_.push_back(read());
  if (events != 0)
    running_.push_back(wait_for_events(events));
}

void remote_line::hang_up() {
  ended_ = true;
  stop();
}

void remote_line::stop() {
  server_.hang_up();
  output_.close();
  pause_.cancel();
  heartbeat_.cancel();
}

void remote_line::end(const client_error& reason) {
  if (ended_.exchange(true))
    return;
  receiver_->ended(reason);  // first: stop() completes pending writes as if they had succeeded
  stop();
}

// Every driver completes a read of one byte as soon as that byte arrives. Some complete a longer
// read with the bytes at hand, others wait for all of it, so the second read asks only for bytes
// that are queued. A device that does not report their number is read byte by byte.
ostra::future<void> remote_line::read() {
  try {
    while (!ended_) {
      const auto start = steady_clock::now();
      auto first_read = read_some(1);
      auto bytes = co_await first_read;
      if (!bytes.empty()) {
        auto asked = controls_.line_status();
        const SERIAL_STATUS status = co_await asked;
        note_errors(status.Errors);
        auto rest_read = read_some(std::min<std::uint32_t>(status.AmountInInQueue, kMaxRead));
        const auto rest = co_await rest_read;
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        auto taken = receiver_->received(std::move(bytes));
        co_await taken;
      } else if (steady_clock::now() - start < limits_.driver / 2) {
        // A driver that ignores these time-outs must not be polled without a pause.
        auto pause = pause_.wait(kPauseBetweenReads);
        co_await pause;
      }
    }
  } catch (const client_error& error) {
    end(error);
  } catch (const ostra::timer_cancelled&) {
    // The line has ended.
  }
}

ostra::future<std::vector<std::byte>> remote_line::read_some(std::uint32_t size) {
  if (size == 0)
    co_return std::vector<std::byte>();
  auto call = server_.answer(server_.remote().Read(size), name_, limits_.driver + limits_.patience);
  tether::bytes_result result = co_await call;
  if (FAILED(result.code))
    throw explain(result.code, name_);
  co_return std::move(result.bytes);
}

ostra::future<std::uint32_t> remote_line::take_errors() {
  auto asked = controls_.line_status();
  const SERIAL_STATUS status = co_await asked;
  errors_ |= status.Errors;
  co_return errors_.exchange(0);
}

// Keeps the errors for take_errors(), since the device clears them once it has reported them.
void remote_line::note_errors(std::uint32_t errors) {
  if (errors == 0)
    return;
  errors_ |= errors;
  receiver_->changed((errors & SERIAL_ERROR_BREAK) != 0 ? SERIAL_EV_ERR | SERIAL_EV_BREAK
                                                        : SERIAL_EV_ERR);
}

ostra::future<bool> remote_line::has_modem_lines() {
  try {
    auto asked = controls_.modem_status();
    co_await asked;
    co_return true;
  } catch (const client_error&) {
    co_return false;
  }
}

// For a device without modem lines, some drivers never complete a wait for their changes, not even
// when it is cancelled.
ostra::future<void> remote_line::wait_for_events(std::uint32_t events) {
  try {
    auto asked = has_modem_lines();
    const bool has_lines = co_await asked;
    if (!has_lines)
      events &= ~kModemEvents;
    if (events == 0)
      co_return;
    auto set = controls_.set_event_mask(events);
    co_await set;
    auto wait = controls_.wait_for_events();
    while (!ended_) {
      const std::uint32_t happened = co_await wait;
      // The mask never changes, so a wait without a result means a device without events.
      if (happened == 0)
        co_return;
      wait = controls_.wait_for_events();
      receiver_->changed(happened);
    }
  } catch (const client_error&) {
    // A device without events, or the end of the connection, which watch_connection() reports.
  }
}

ostra::future<void> remote_line::watch_connection() {
  auto ended = server_.ended();
  co_await ended;
  end(server_.end_of_connection(name_));
}

ostra::future<void> remote_line::watch_output() {
  const auto failure = output_.failure();
  try {
    co_await failure;
  } catch (const client_error& error) {
    end(error);
  }
}

// A device that has vanished leaves the pending read without an answer, as a quiet line does.
// Silence ends the line only if the device has answered this query before, so the first is sent at
// once.
ostra::future<void> remote_line::watch_device() {
  try {
    while (!ended_) {
      auto beat = controls_.baud_rate(kHeartbeatLimit);
      co_await beat;
      auto pause = heartbeat_.wait(kHeartbeat);
      co_await pause;
    }
  } catch (const ostra::timer_cancelled&) {
    // The line has ended.
  } catch (const client_error& error) {
    if (controls_.has_answered(IOCTL_SERIAL_GET_BAUD_RATE))
      end(error);
  }
}

ostra::future<void> remote_line::purge(purged what) {
  if (what != purged::input)
    output_.drop();
  return controls_.purge(what);
}

}  // namespace tarnwheel::client
