#include "client/telnet/com_port_notices.h"

#include <mutex>
#include <utility>

#include "client/telnet/com_port_option.h"
#include "platform/serial.h"

namespace tarnwheel::client {
namespace {

using namespace com_port_option;

std::uint8_t changes_between(std::uint8_t before, std::uint8_t now) {
  const auto changed = static_cast<std::uint8_t>(before ^ now);
  const auto told = static_cast<std::uint8_t>((changed & ~kRing) | (changed & before & kRing));
  return static_cast<std::uint8_t>(told >> 4);
}

}  // namespace

com_port_notices::payload com_port_notices::modem_state(std::uint32_t status, bool rang) {
  const std::lock_guard guard(lock_);
  const bool first = !notified_;
  const auto changed = static_cast<std::uint8_t>(lines_ ^ (status & kLines));
  const unsigned state = next_modem_state(status) | (rang ? kRing >> 4 : 0u);
  if (!first && ((changed | (state & ~unsigned{kLines})) & modem_mask_) == 0)
    return {};
  return answer(kNotifyModemState, static_cast<std::uint8_t>(state & modem_mask_));
}

com_port_notices::payload com_port_notices::requested_modem_state(std::uint32_t status) {
  const std::lock_guard guard(lock_);
  return answer(kNotifyModemState, next_modem_state(status));
}

void com_port_notices::set_modem_mask(std::uint8_t mask) {
  const std::lock_guard guard(lock_);
  modem_mask_ = mask;
}

void com_port_notices::set_line_mask(std::uint8_t mask) {
  const std::lock_guard guard(lock_);
  line_mask_ = mask;
}

std::uint8_t com_port_notices::next_modem_state(std::uint32_t status) {
  const auto lines = static_cast<std::uint8_t>(status & kLines);
  const std::uint8_t before = std::exchange(lines_, lines);
  const std::uint8_t changes = std::exchange(notified_, true) ? changes_between(before, lines) : 0;
  return static_cast<std::uint8_t>(lines | changes);
}

com_port_notices::payload com_port_notices::line_state(std::uint32_t errors) {
  constexpr std::pair<std::uint32_t, std::uint8_t> kStates[] = {
      {SERIAL_ERROR_BREAK, kBreakDetected},
      {SERIAL_ERROR_FRAMING, kFramingError},
      {SERIAL_ERROR_PARITY, kParityError},
      {SERIAL_ERROR_OVERRUN, kOverrun},
      {SERIAL_ERROR_QUEUEOVERRUN, kOverrun}};
  unsigned state = 0;
  for (const auto& [error, bit] : kStates)
    state |= (errors & error) != 0 ? bit : 0u;
  const std::lock_guard guard(lock_);
  state &= line_mask_;
  return state == 0 ? payload() : answer(kNotifyLineState, static_cast<std::uint8_t>(state));
}

}  // namespace tarnwheel::client
