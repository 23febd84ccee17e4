#include "client/line/control_answers.h"

#include <mutex>

#include "platform/serial.h"

namespace tarnwheel::client {
namespace {

// The code for on stands for both of a signal's codes.
std::uint32_t known_by(std::uint32_t code) {
  switch (code) {
    case IOCTL_SERIAL_CLR_DTR:
      return IOCTL_SERIAL_SET_DTR;
    case IOCTL_SERIAL_CLR_RTS:
      return IOCTL_SERIAL_SET_RTS;
    case IOCTL_SERIAL_SET_BREAK_OFF:
      return IOCTL_SERIAL_SET_BREAK_ON;
    default:
      return code;
  }
}

}  // namespace

void control_answers::note_answer(std::uint32_t code) {
  const std::lock_guard guard(lock_);
  answered_.insert(known_by(code));
  missed_.erase(known_by(code));
}

void control_answers::note_miss(std::uint32_t code) {
  const std::lock_guard guard(lock_);
  if (!answered_.contains(known_by(code)))
    missed_.insert(known_by(code));
}

bool control_answers::has_answer(std::uint32_t code) const {
  const std::lock_guard guard(lock_);
  return answered_.contains(known_by(code));
}

bool control_answers::is_missed(std::uint32_t code) const {
  const std::lock_guard guard(lock_);
  return missed_.contains(known_by(code));
}

}  // namespace tarnwheel::client
