#include "client/bridge/bridge.h"

#include <chrono>
#include <mutex>
#include <utility>

#include "client/bridge/com_session.h"
#include "client/bridge/rfc2217_session.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;
using std::chrono::milliseconds;

constexpr std::uint32_t kEvents = SERIAL_EV_CTS | SERIAL_EV_DSR | SERIAL_EV_RLSD | SERIAL_EV_RING |
                                  SERIAL_EV_BREAK | SERIAL_EV_ERR;

}  // namespace

bridge::bridge(bridge_options options, std::unique_ptr<stream_listener> listener)
    : options_(std::move(options)),
      name_(port_name(options_.line.port)),
      programs_(
          std::move(listener), options_.device, name_, [this] { notify(); },
          [this](const client_error& reason) { fail(reason); }) {}

void bridge::run(HANDLE stop, const std::function<void()>& ready) {
  const withdrawal at_the_end{*this};
  if (!options_.releases)
    open_line();
  programs_.set_port(port_state::ready);
  ready();
  while (wait_for_news(stop)) {
    handle_line_end();
    handle_departure();
    if (auto program = programs_.take())
      begin_session(std::move(program));
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
  self.programs_.set_port(port_state::away);
  self.close_line();
  self.report_departure();
  static_cast<void>(self.take_failure());
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
  programs_.set_port(port_state::ready);
  report_departure();
}

void bridge::handle_departure() {
  {
    const std::lock_guard guard(lock_);
    if (!std::exchange(program_has_gone_, false))
      return;
  }
  end_session();
  if (options_.releases)
    close_line();
  programs_.set_port(port_state::ready);
  report_departure();
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
    programs_.turn_away(std::move(program), error.message() + L"\r\n").wait();
    programs_.set_port(port_state::ready);
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
  program_has_gone_ = true;
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
  program_has_gone_ = false;
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
