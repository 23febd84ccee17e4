#include "client/line/line_controls.h"

#include <mutex>
#include <type_traits>
#include <utility>

#include "async/errors.h"
#include "async/srw_lock.h"
#include "client/line/control_answers.h"
#include "client/line/control_bytes.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBreakTime(250);

// In milliseconds. Ends a read that asks for more bytes than a purge has left.
constexpr ULONG kByteInterval = 20;

constexpr UCHAR kXon = 0x11;
constexpr UCHAR kXoff = 0x13;

// Bytes in the driver's input queue: the sender resumes when fewer than the first are queued, and
// stops when less than the second is free.
constexpr LONG kXonLimit = 1024;
constexpr LONG kXoffLimit = 1024;

constexpr std::uint64_t kBitsOnTheLine = 12;  // of one byte, with start, parity and stop bits

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

template <class Result>
constexpr std::uint32_t output_size = sizeof(Result);
template <>
constexpr std::uint32_t output_size<void> = 0;

// Makes the failure of a request name the setting that was requested.
ostra::future<void> named(ostra::future<void> request, std::wstring port, std::wstring setting) {
  HRESULT code = S_OK;
  try {
    co_await request;
    co_return;
  } catch (const client_error& error) {
    if (error.kind() != failure::device)
      throw;
    code = error.code();
  }
  throw client_error(tfmt::format(L"{0}: the device refuses {1}", port, setting), code);
}

}  // namespace

ostra::future<bool> accepted(ostra::future<void> request) {
  try {
    co_await request;
    co_return true;
  } catch (const client_error&) {
    co_return false;
  }
}

struct line_controls::state {
  // Also notes an answer that arrives after the request's limit.
  static ostra::future<tether::bytes_result> noted(std::shared_ptr<state> self, std::uint32_t code,
                                                   ostra::future<tether::bytes_result> call) {
    tether::bytes_result result = co_await call;
    self->answers.note_answer(code);
    co_return result;
  }

  control_answers answers;  // has a lock of its own

  // Guarded by lock. The last settings of the line.
  ostra::srw_lock lock;
  std::uint32_t baud_rate = 0;  // 0 until it is set
  flow_control flow = flow_control::none;
  bool dtr = true;
  bool rts = true;
};

line_controls::line_controls(server_connection& server, std::wstring name)
    : server_(server), name_(std::move(name)), state_(std::make_shared<state>()) {}

// Uses nothing of this object after the first suspension, since the request may outlive it.
template <class Result>
ostra::future<Result> line_controls::request(std::uint32_t code, bytes input, milliseconds limit) {
  const auto shared = state_;
  const auto name = name_;
  if (shared->answers.is_missed(code))
    throw client_error(name + L": the device does not answer this request",
                       ostra::details::to_hresult(ERROR_NOT_SUPPORTED));
  auto call = server_.remote().IoControl(code, output_size<Result>, std::move(input));
  auto answer = server_.answer(state::noted(shared, code, std::move(call)), name, limit);
  tether::bytes_result result;
  try {
    result = co_await answer;
  } catch (const client_error&) {
    shared->answers.note_miss(code);
    throw;
  }
  if (FAILED(result.code))
    throw explain(result.code, name);
  if constexpr (!std::is_void_v<Result>)
    co_return result_of<Result>(result.bytes);
}

ostra::future<void> line_controls::set_line(line_settings settings) {
  auto rate = set_baud_rate(settings.baud_rate.BaudRate);
  co_await rate;
  auto control = set_line_control(settings.control);
  co_await control;
  auto flow = named(set_flow_control(settings.flow), name_,
                    tfmt::format(L"the flow control {0}", words_of(settings.flow)));
  co_await flow;
}

ostra::future<void> line_controls::set_baud_rate(std::uint32_t rate) {
  const auto shared = state_;
  auto set = named(request(IOCTL_SERIAL_SET_BAUD_RATE, bytes_of(SERIAL_BAUD_RATE{rate})), name_,
                   tfmt::format(L"{0} baud", rate));
  co_await set;
  const std::lock_guard guard(shared->lock);
  shared->baud_rate = rate;
}

ostra::future<void> line_controls::set_line_control(SERIAL_LINE_CONTROL settings) {
  return named(request(IOCTL_SERIAL_SET_LINE_CONTROL, bytes_of(settings)), name_,
               words_of(settings));
}

ostra::future<void> line_controls::set_flow_control(flow_control kind) {
  const auto shared = state_;
  SERIAL_HANDFLOW settings = {};
  {
    const std::lock_guard guard(shared->lock);
    settings = hand_flow(kind, shared->dtr, shared->rts);
  }
  ostra::future<void> characters_set;
  if (kind == flow_control::xon_xoff) {
    SERIAL_CHARS characters = {};
    characters.XonChar = kXon;
    characters.XoffChar = kXoff;
    characters_set = request(IOCTL_SERIAL_SET_CHARS, bytes_of(characters));
  }
  auto set = request(IOCTL_SERIAL_SET_HANDFLOW, bytes_of(settings));
  if (characters_set.valid())
    co_await characters_set;
  co_await set;
  const std::lock_guard guard(shared->lock);
  shared->flow = kind;
}

ostra::future<void> line_controls::set_queue_size(std::uint32_t size) {
  return request(IOCTL_SERIAL_SET_QUEUE_SIZE, bytes_of(SERIAL_QUEUE_SIZE{size, size}));
}

ostra::future<void> line_controls::set_read_limit(milliseconds limit) {
  SERIAL_TIMEOUTS timeouts = {};
  timeouts.ReadIntervalTimeout = kByteInterval;
  timeouts.ReadTotalTimeoutConstant = static_cast<ULONG>(limit.count());
  return request(IOCTL_SERIAL_SET_TIMEOUTS, bytes_of(timeouts));
}

ostra::future<void> line_controls::set_dtr(bool on) {
  {
    const std::lock_guard guard(state_->lock);
    state_->dtr = on;
  }
  return request(on ? IOCTL_SERIAL_SET_DTR : IOCTL_SERIAL_CLR_DTR);
}

ostra::future<void> line_controls::set_rts(bool on) {
  bool driver_sets_it = false;
  {
    const std::lock_guard guard(state_->lock);
    state_->rts = on;
    driver_sets_it = state_->flow == flow_control::rts_cts;
  }
  if (driver_sets_it)
    co_return;
  auto set = request(on ? IOCTL_SERIAL_SET_RTS : IOCTL_SERIAL_CLR_RTS);
  co_await set;
}

ostra::future<void> line_controls::set_break(bool on) {
  return request(on ? IOCTL_SERIAL_SET_BREAK_ON : IOCTL_SERIAL_SET_BREAK_OFF);
}

ostra::future<void> line_controls::send_break(ostra::async_timer& time) {
  auto begun = set_break(true);
  co_await begun;
  auto over = time.wait(kBreakTime);
  co_await over;
  auto ended = set_break(false);
  co_await ended;
}

ostra::future<void> line_controls::purge(purged what) {
  return request(IOCTL_SERIAL_PURGE, bytes_of(purge_mask(what)));
}

ostra::future<void> line_controls::set_event_mask(std::uint32_t events) {
  return request(IOCTL_SERIAL_SET_WAIT_MASK, bytes_of(events));
}

ostra::future<std::uint32_t> line_controls::wait_for_events() {
  return request<std::uint32_t>(IOCTL_SERIAL_WAIT_ON_MASK, {}, milliseconds::zero());
}

ostra::future<std::uint32_t> line_controls::modem_status() {
  return request<std::uint32_t>(IOCTL_SERIAL_GET_MODEMSTATUS);
}

ostra::future<std::uint32_t> line_controls::baud_rate(milliseconds limit) {
  return request<std::uint32_t>(IOCTL_SERIAL_GET_BAUD_RATE, {}, limit);
}

ostra::future<SERIAL_STATUS> line_controls::line_status() {
  SERIAL_STATUS status = {};
  try {
    auto asked = request<SERIAL_STATUS>(IOCTL_SERIAL_GET_COMMSTATUS);
    status = co_await asked;
  } catch (const client_error&) {
    // The device does not report it.
  }
  co_return status;
}

bool line_controls::has_answered(std::uint32_t code) const {
  return state_->answers.has_answer(code);
}

milliseconds line_controls::write_limit(std::size_t size) const {
  const std::lock_guard guard(state_->lock);
  if (state_->baud_rate == 0 || state_->flow != flow_control::none)
    return milliseconds::zero();
  return kCallLimit + milliseconds(size * kBitsOnTheLine * 1000 / state_->baud_rate);
}

}  // namespace tarnwheel::client
