#include "client/bridge/bridge.h"

#include <chrono>
#include <mutex>
#include <utility>

#include "async/errors.h"
#include "async/within.h"
#include "client/bridge/com_session.h"
#include "client/bridge/rfc2217_session.h"
#include "console/print.h"
#include "console/utf8.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;
using std::chrono::milliseconds;

constexpr std::uint32_t kEvents = SERIAL_EV_CTS | SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_RING |
                                  SERIAL_EV_BREAK | SERIAL_EV_ERR;

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

bridge::bridge(bridge_options options, std::unique_ptr<stream_listener> listener)
    : options_(std::move(options)),
      name_(port_name(options_.line.port)),
      listener_(std::move(listener)),
      accepting_(accept_programs()) {}

bridge::~bridge() {
  listener_->cancel();
  make_available(availability::closing);
  accepting_.wait();
  end_session();
}

// Goes on accepting, whatever happens to one program.
ostra::future<void> bridge::accept_programs() {
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
      failed = true;  // accept() fails again, in case run() discards this failure
      fail(error);
    }
    if (failed) {
      auto pausing = pause.wait(kPauseAfterFailure);
      co_await pausing;
    }
  }
}

ostra::future<void> bridge::greet(std::shared_ptr<byte_stream> program) {
  const auto deadline = std::chrono::steady_clock::now() + kHandOver;
  availability found = hand_over(program);
  while (found == availability::taken || (options_.device && found == availability::away)) {
    const auto left =
        options_.device ? kDeviceHandOver : deadline - std::chrono::steady_clock::now();
    if (left <= left.zero())
      break;
    auto freed = freed_.wait_for(std::chrono::ceil<ostra::ticks>(left));
    co_await freed;
    found = hand_over(program);
  }
  if (found == availability::ready || options_.device)
    co_return;
  const std::wstring_view reason = found == availability::taken
                                       ? L" is in use by another program\r\n"
                                       : L" is not available at the moment\r\n";
  auto turned_away = turn_away(std::move(program), name_ + std::wstring(reason));
  co_await turned_away;
}

// Returns the port's availability before the call; if that was ready, the program now has the port.
bridge::availability bridge::hand_over(const std::shared_ptr<byte_stream>& program) {
  const std::lock_guard guard(lock_);
  const availability found = availability_;
  if (found == availability::ready) {
    availability_ = availability::taken;
    arrivals_.program = program;
    notify();
  }
  return found;
}

// A device's program cannot be sent away: its device is closed after a pause, and opened again.
ostra::future<void> bridge::turn_away(std::shared_ptr<byte_stream> program, std::wstring reason) {
  if (options_.device) {
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

void bridge::run(HANDLE stop, const std::function<void()>& ready) {
  const withdrawal at_the_end{*this};
  if (!options_.releases)
    open_line();
  make_available(availability::ready);
  ready();
  while (wait_for_news(stop)) {
    handle_line_end();
    arrivals present;
    {
      const std::lock_guard guard(lock_);
      present = std::exchange(arrivals_, {});
    }
    handle(std::move(present));
  }
}

// False when `stop` is signalled. A program that is idle for too long is disconnected.
bool bridge::wait_for_news(HANDLE stop) {
  const auto present = session();
  const DWORD limit = present ? until_idle(*present) : INFINITE;
  if (limit != 0)
    return wait_for({stop, news()}, limit) != stop;
  if (present->close_if_idle(options_.idle_limit))
    print(standard_stream::output, tfmt::format(L"{0} is idle and has been disconnected\n", peer_));
  return true;
}

// In milliseconds; 0 once the program has been idle for too long.
DWORD bridge::until_idle(const bridge_session& present) const {
  if (present.is_closed() || options_.idle_limit == milliseconds::zero())
    return INFINITE;
  return milliseconds_until(std::chrono::steady_clock::now() - present.idle_time() +
                            options_.idle_limit);
}

bridge::withdrawal::~withdrawal() {
  self.make_available(availability::away);
  self.close_line();
  self.report_departure();
  static_cast<void>(self.take_failure());
  const std::lock_guard guard(self.lock_);
  self.arrivals_ = {};
}

void bridge::handle_line_end() {
  const auto reason = take_failure();
  // A line may fail while it is being closed; that is no news once it is closed.
  if (!reason || (!line_ && reason->kind() != failure::local))
    return;
  if (!options_.releases || reason->kind() == failure::local)
    throw *reason;
  report(*reason);
  close_line();
  make_available(availability::ready);
  report_departure();
}

void bridge::handle(arrivals present) {
  if (present.program_has_gone) {
    end_session();
    if (options_.releases)
      close_line();
    make_available(availability::ready);
    report_departure();
  }
  if (present.program)
    begin_session(std::move(present.program));
}

void bridge::open_line() {
  auto line = std::make_unique<remote_line>(options_.line);
  settings_ = {.line = options_.line.settings};
  is_used_ = false;
  line->start(*this, kEvents);
  line_ = std::move(line);
  if (!options_.telnet)
    return;
  // A device without modem lines is thus known before a program waits for the answer.
  static_cast<void>(line_->controls().modem_status());
  static_cast<void>(line_->controls().set_dtr(true));
  static_cast<void>(line_->controls().set_rts(true));
}

// Undoes the settings of a program before the next one is served.
void bridge::restore_line() {
  auto& controls = line_->controls();
  static_cast<void>(controls.set_dtr(true));
  static_cast<void>(controls.set_rts(true));
  controls.set_line(options_.line.settings).get();
  settings_ = {.line = options_.line.settings};
}

void bridge::close_line() {
  if (!line_)
    return;
  line_->hang_up();
  end_session();
  line_.reset();
}

void bridge::begin_session(std::shared_ptr<byte_stream> program) {
  try {
    if (!line_)
      open_line();
    if (std::exchange(is_used_, true) && options_.telnet && !options_.keeps_settings)
      restore_line();
  } catch (const client_error& error) {
    report(error);
    turn_away(std::move(program), error.message() + L"\r\n").wait();
    make_available(availability::ready);
    return;
  }
  reported_.clear();
  peer_ = program->peer();
  print(standard_stream::output, tfmt::format(L"{0} has connected to {1}\n", peer_, name_));
  std::shared_ptr<bridge_session> session;
  if (options_.telnet)
    session = std::make_shared<rfc2217_session>(std::move(program), *line_, settings_);
  else if (options_.device)
    session = std::make_shared<com_session>(std::static_pointer_cast<com_stream>(program), *line_,
                                            settings_);
  else
    session = std::make_shared<bridge_session>(std::move(program), *line_);
  {
    const std::lock_guard guard(lock_);
    session_ = session;
  }
  serving_ = serve(std::move(session));
}

ostra::future<void> bridge::serve(std::shared_ptr<bridge_session> session) {
  auto running = session->run();
  co_await running;
  // The line is closed next. A device's session has drained it by itself.
  if (options_.releases && !options_.device) {
    auto drained = session->drain();
    co_await drained;
  }
  const std::lock_guard guard(lock_);
  arrivals_.program_has_gone = true;
  notify();
}

void bridge::end_session() {
  std::shared_ptr<bridge_session> ending;
  {
    const std::lock_guard guard(lock_);
    ending = std::exchange(session_, nullptr);
  }
  if (!ending)
    return;
  ending->close();
  serving_.wait();
  departed_ = std::exchange(peer_, {});
  const std::lock_guard guard(lock_);
  arrivals_.program_has_gone = false;
}

void bridge::report_departure() {
  if (!departed_.empty())
    print(standard_stream::output, tfmt::format(L"{0} has disconnected\n", departed_));
  departed_.clear();
}

void bridge::report(const client_error& reason) {
  if (std::exchange(reported_, reason.message()) != reason.message() || !options_.device)
    print(standard_stream::error, reason.message() + L"\n");
}

void bridge::make_available(availability now) {
  {
    const std::lock_guard guard(lock_);
    availability_ = now;
  }
  freed_.set();
}

std::shared_ptr<bridge_session> bridge::session() {
  const std::lock_guard guard(lock_);
  return session_;
}

// Bytes received while no program is connected are discarded.
ostra::future<void> bridge::received(std::vector<std::byte> bytes) {
  const auto present = session();
  if (present) {
    auto delivered = present->deliver(std::move(bytes));
    co_await delivered;
  }
}

void bridge::changed(std::uint32_t events) {
  if (const auto present = session())
    present->changed(events);
}

}  // namespace tarnwheel::client
