#include "client/line/line_controls.h"

#include <algorithm>
#include <exception>
#include <mutex>

#include "async/errors.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

constexpr UCHAR kXon = 0x11;
constexpr UCHAR kXoff = 0x13;

// Bytes in the driver's input queue: below the first the sender may go on, and within the second of
// its end the sender is to stop.
constexpr LONG kXonLimit = 1024;
constexpr LONG kXoffLimit = 1024;

SERIAL_HANDFLOW hand_flow(flow_control kind, bool dtr, bool rts) {
  SERIAL_HANDFLOW settings = {};
  if (dtr)
    settings.ControlHandShake |= SERIAL_DTR_CONTROL;
  if (kind == flow_control::rts_cts) {
    settings.ControlHandShake |= SERIAL_CTS_HANDSHAKE;
    settings.FlowReplace |= SERIAL_RTS_HANDSHAKE;
  } else if (rts) {
    settings.FlowReplace |= SERIAL_RTS_CONTROL;
  }
  if (kind == flow_control::xon_xoff)
    settings.FlowReplace |= SERIAL_AUTO_TRANSMIT | SERIAL_AUTO_RECEIVE;
  settings.XonLimit = kXonLimit;
  settings.XoffLimit = kXoffLimit;
  return settings;
}

ULONG purge_mask(purged what) {
  ULONG mask = 0;
  if (what != purged::output)
    mask |= SERIAL_PURGE_RXCLEAR;
  if (what != purged::input)
    mask |= SERIAL_PURGE_TXABORT | SERIAL_PURGE_TXCLEAR;
  return mask;
}

// A signal has two codes, and a device knows both or neither.
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

// A device that gives less than it was asked for has an old layout: the rest is zero.
template <class Result>
Result result_of(const std::vector<std::byte>& bytes) {
  Result result = {};
  const auto known = std::span(bytes).first(std::min(bytes.size(), sizeof result));
  std::ranges::copy(known, std::as_writable_bytes(std::span(&result, 1)).begin());
  return result;
}

ostra::future<void> done(ostra::future<tether::bytes_result> answer) {
  co_await answer;
}

ostra::future<void> both(ostra::future<void> first, ostra::future<void> second) {
  co_await first;
  co_await second;
}

ostra::future<void> nothing() {
  co_return;
}

template <class Result>
ostra::future<Result> value_of(ostra::future<tether::bytes_result> answer) {
  const tether::bytes_result result = co_await answer;
  co_return result_of<Result>(result.bytes);
}

ostra::future<tether::bytes_result> not_asked(const std::wstring& name) {
  ostra::promise<tether::bytes_result> promise;
  auto failed = promise.get_future();
  const client_error reason(name + L": the device does not answer this request",
                            ostra::details::to_hresult(ERROR_NOT_SUPPORTED));
  promise.set_exception(std::make_exception_ptr(reason));
  return failed;
}

}  // namespace

template <class Settings>
ostra::future<void> line_controls::set(std::uint32_t code, const Settings& settings) {
  const auto input = std::as_bytes(std::span(&settings, 1));
  return done(request(code, 0, input, kControlLimit));
}

ostra::future<void> line_controls::set(std::uint32_t code) {
  return done(request(code, 0, {}, kControlLimit));
}

template <class Result>
ostra::future<Result> line_controls::get(std::uint32_t code, milliseconds limit) {
  return value_of<Result>(request(code, sizeof(Result), {}, limit));
}

ostra::future<void> line_controls::set_baud_rate(std::uint32_t rate) {
  SERIAL_BAUD_RATE settings = {};
  settings.BaudRate = rate;
  return set(IOCTL_SERIAL_SET_BAUD_RATE, settings);
}

ostra::future<void> line_controls::set_line_control(SERIAL_LINE_CONTROL settings) {
  return set(IOCTL_SERIAL_SET_LINE_CONTROL, settings);
}

ostra::future<void> line_controls::set_flow_control(flow_control kind) {
  SERIAL_HANDFLOW settings = {};
  {
    const std::lock_guard guard(lock_);
    flow_ = kind;
    settings = hand_flow(kind, dtr_, rts_);
  }
  if (kind != flow_control::xon_xoff)
    return set(IOCTL_SERIAL_SET_HANDFLOW, settings);
  SERIAL_CHARS characters = {};
  characters.XonChar = kXon;
  characters.XoffChar = kXoff;
  auto characters_set = set(IOCTL_SERIAL_SET_CHARS, characters);
  return both(std::move(characters_set), set(IOCTL_SERIAL_SET_HANDFLOW, settings));
}

ostra::future<void> line_controls::set_read_limit(milliseconds limit) {
  SERIAL_TIMEOUTS timeouts = {};
  timeouts.ReadIntervalTimeout = MAXDWORD;
  timeouts.ReadTotalTimeoutMultiplier = MAXDWORD;
  timeouts.ReadTotalTimeoutConstant = static_cast<ULONG>(limit.count());
  return set(IOCTL_SERIAL_SET_TIMEOUTS, timeouts);
}

ostra::future<void> line_controls::set_dtr(bool on) {
  {
    const std::lock_guard guard(lock_);
    dtr_ = on;
  }
  return set(on ? IOCTL_SERIAL_SET_DTR : IOCTL_SERIAL_CLR_DTR);
}

ostra::future<void> line_controls::set_rts(bool on) {
  bool driver_sets_it = false;
  {
    const std::lock_guard guard(lock_);
    rts_ = on;
    driver_sets_it = flow_ == flow_control::rts_cts;
  }
  if (driver_sets_it)
    return nothing();
  return set(on ? IOCTL_SERIAL_SET_RTS : IOCTL_SERIAL_CLR_RTS);
}

ostra::future<void> line_controls::set_break(bool on) {
  return set(on ? IOCTL_SERIAL_SET_BREAK_ON : IOCTL_SERIAL_SET_BREAK_OFF);
}

ostra::future<void> line_controls::purge(purged what) {
  return set(IOCTL_SERIAL_PURGE, purge_mask(what));
}

ostra::future<void> line_controls::set_event_mask(std::uint32_t events) {
  return set(IOCTL_SERIAL_SET_WAIT_MASK, events);
}

ostra::future<std::uint32_t> line_controls::modem_status() {
  return get<std::uint32_t>(IOCTL_SERIAL_GET_MODEMSTATUS);
}

ostra::future<std::uint32_t> line_controls::baud_rate(milliseconds limit) {
  return get<std::uint32_t>(IOCTL_SERIAL_GET_BAUD_RATE, limit);
}

ostra::future<SERIAL_STATUS> line_controls::line_status() {
  return get<SERIAL_STATUS>(IOCTL_SERIAL_GET_COMMSTATUS);
}

bool line_controls::has_answered(std::uint32_t code) const {
  const std::lock_guard guard(answers_->lock);
  return answers_->given.contains(known_by(code));
}

ostra::future<tether::bytes_result> line_controls::request(std::uint32_t code,
                                                           std::uint32_t output_size,
                                                           std::span<const std::byte> input,
                                                           milliseconds limit) {
  {
    const std::lock_guard guard(answers_->lock);
    if (answers_->missed.contains(known_by(code)))
      return not_asked(name_);
  }
  auto call = server_.remote().IoControl(code, output_size, {input.begin(), input.end()});
  auto answer =
      server_.answer(note_answer(answers_, known_by(code), std::move(call)), name_, limit);
  return note_miss(answers_, known_by(code), name_, std::move(answer));
}

ostra::future<tether::bytes_result> line_controls::note_answer(
    std::shared_ptr<answers> answers, std::uint32_t code,
    ostra::future<tether::bytes_result> call) {
  tether::bytes_result result = co_await call;
  const std::lock_guard guard(answers->lock);
  answers->given.insert(code);
  answers->missed.erase(code);  // it came late
  co_return result;
}

ostra::future<tether::bytes_result> line_controls::note_miss(
    std::shared_ptr<answers> answers, std::uint32_t code, std::wstring name,
    ostra::future<tether::bytes_result> answer) {
  tether::bytes_result result;
  try {
    result = co_await answer;
  } catch (const client_error&) {
    const std::lock_guard guard(answers->lock);
    if (!answers->given.contains(code))
      answers->missed.insert(code);
    throw;
  }
  if (FAILED(result.code))
    throw explain(result.code, name);
  co_return result;
}

}  // namespace tarnwheel::client
