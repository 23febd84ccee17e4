#include "client/bridge/rfc2217_session.h"

#include <utility>

namespace tarnwheel::client {
namespace {

constexpr char kSignature[] = "Tarnwheel bridge";

}  // namespace

rfc2217_session::rfc2217_session(std::shared_ptr<byte_stream> program, remote_line& line,
                                 com_port_settings& settings)
    : bridge_session(std::move(program), line), control_(line, settings, kSignature) {}

ostra::future<void> rfc2217_session::begin() {
  return to_program().send(telnet_.offer());
}

ostra::future<void> rfc2217_session::end() {
  return control_.end_break();
}

void rfc2217_session::close() noexcept {
  bridge_session::close();
  control_.close();
}

ostra::future<void> rfc2217_session::take(std::vector<std::byte> bytes) {
  bool controls = false;
  for (telnet_item& item : telnet_.receive(bytes)) {
    if (is_closed())
      co_return;
    ostra::future<void> done;
    switch (item.what) {
      case telnet_item::kind::data:
        done = line().write(std::move(item.bytes));
        break;
      case telnet_item::kind::reply:
        done = to_program().send(std::move(item.bytes));
        break;
      case telnet_item::kind::break_request:
        done = control_.send_break();
        break;
      case telnet_item::kind::com_port:
        controls = true;
        done = execute(std::move(item.bytes));
        break;
    }
    co_await done;
  }
  // A program that controls the port is told its state. Some mistake this end's offer for an answer
  // and never agree, but send commands all the same.
  if ((controls || telnet_.controls_port()) && !controls_port_.exchange(true))
    changed(SERIAL_EV_CTS);
}

ostra::future<void> rfc2217_session::execute(std::vector<std::byte> command) {
  auto executed = control_.execute(std::move(command));
  const auto answer = co_await executed;
  if (!answer.empty()) {
    auto sent = to_program().send(telnet::encode_com_port(answer));
    co_await sent;
  }
}

ostra::future<void> rfc2217_session::send(std::vector<std::byte> bytes) {
  const unsigned purges = control_.input_purges();
  auto flowing = control_.flowing();
  co_await flowing;
  if (purges == control_.input_purges()) {
    auto sent = to_program().send(telnet_.encode(bytes));
    co_await sent;
  }
}

ostra::future<void> rfc2217_session::notify_of(std::uint32_t events) {
  if (!controls_port_)
    co_return;
  if ((events & kModemEvents) != 0) {
    auto asked = control_.modem_status();
    const std::uint32_t status = co_await asked;
    auto sent = send_notice(control_.notices().modem_state(status, (events & SERIAL_EV_RING) != 0));
    co_await sent;
  }
  if ((events & ~kModemEvents) != 0) {
    auto asked = line().take_errors();
    std::uint32_t errors = co_await asked;
    if ((events & SERIAL_EV_BREAK) != 0)
      errors |= SERIAL_ERROR_BREAK;
    auto sent = send_notice(control_.notices().line_state(errors));
    co_await sent;
  }
}

ostra::future<void> rfc2217_session::send_notice(std::vector<std::byte> notice) {
  if (notice.empty())
    co_return;
  auto flowing = control_.flowing();
  co_await flowing;
  auto sent = to_program().send(telnet::encode_com_port(notice));
  co_await sent;
}

}  // namespace tarnwheel::client
