#include "client/telnet/com_port_control.h"

#include <algorithm>
#include <iterator>

#include "client/telnet/com_port_option.h"

namespace tarnwheel::client {
namespace {

using namespace com_port_option;
using payload = com_port_control::payload;

ostra::future<payload> ready(payload bytes) {
  co_return bytes;
}

std::uint32_t integer_of(std::span<const std::byte> bytes) {
  std::uint32_t value = 0;
  for (const std::byte byte : bytes)
    value = value << 8 | std::to_integer<std::uint32_t>(byte);
  return value;
}

// The codes of one setting in the option and for a driver.
struct code_pair {
  std::uint8_t option;
  UCHAR driver;
};

constexpr code_pair kParities[] = {{kNone, NO_PARITY},
                                   {kOdd, ODD_PARITY},
                                   {kEven, EVEN_PARITY},
                                   {kMark, MARK_PARITY},
                                   {kSpace, SPACE_PARITY}};
constexpr code_pair kStopSizes[] = {
    {kOne, STOP_BIT_1}, {kTwo, STOP_BITS_2}, {kOneAndAHalf, STOP_BITS_1_5}};
constexpr code_pair kDataSizes[] = {{5, 5}, {6, 6}, {7, 7}, {8, 8}};
constexpr code_pair kFlows[] = {{kFlowNone, static_cast<UCHAR>(flow_control::none)},
                                {kFlowXonXoff, static_cast<UCHAR>(flow_control::xon_xoff)},
                                {kFlowRtsCts, static_cast<UCHAR>(flow_control::rts_cts)}};

// The line setting that a command changes.
struct size_row {
  std::uint8_t command;
  UCHAR SERIAL_LINE_CONTROL::*member;
  std::span<const code_pair> codes;
};

constexpr size_row kSizes[] = {
    {kSetDataSize, &SERIAL_LINE_CONTROL::WordLength, kDataSizes},
    {kSetParity, &SERIAL_LINE_CONTROL::Parity, kParities},
    {kSetStopSize, &SERIAL_LINE_CONTROL::StopBits, kStopSizes},
};

const size_row& size_row_of(std::uint8_t command) {
  return *std::ranges::find(kSizes, command, &size_row::command);
}

std::uint8_t option_code(std::span<const code_pair> codes, UCHAR driver) {
  return std::ranges::find(codes, driver, &code_pair::driver)->option;
}

// A UART has one stop bit, or more: one and a half with 5 data bits, otherwise two. A client that
// sets both sizes in turn would otherwise pass through values that no driver takes.
SERIAL_LINE_CONTROL as_driver_takes_it(SERIAL_LINE_CONTROL line) {
  if (line.StopBits != STOP_BIT_1)
    line.StopBits = line.WordLength == 5 ? STOP_BITS_1_5 : STOP_BITS_2;
  return line;
}

}  // namespace

// A signal that the client sets. Its codes are consecutive: query, on, off.
struct com_port_control::signal {
  [[nodiscard]] bool has(std::uint8_t value) const { return value >= query && value <= query + 2; }

  std::uint8_t query;
  bool com_port_settings::*state;
  ostra::future<void> (line_controls::*set)(bool);
  std::uint32_t device_code;
};

const com_port_control::signal com_port_control::kSignals[] = {
    {kQueryBreak, &com_port_settings::break_on, &line_controls::set_break,
     IOCTL_SERIAL_SET_BREAK_ON},
    {kQueryDtr, &com_port_settings::dtr_on, &line_controls::set_dtr, IOCTL_SERIAL_SET_DTR},
    {kQueryRts, &com_port_settings::rts_on, &line_controls::set_rts, IOCTL_SERIAL_SET_RTS},
};

ostra::future<payload> com_port_control::execute(std::vector<std::byte> command) {
  if (command.empty())
    return ready({});
  const auto code = std::to_integer<std::uint8_t>(command[0]);
  const auto argument = std::span<const std::byte>(command).subspan(1);
  const auto value =
      argument.empty() ? std::uint8_t{0} : std::to_integer<std::uint8_t>(argument[0]);
  switch (code) {
    case kSignature:
      return ready(argument.empty() ? own_signature() : payload());
    case kSetBaudRate:
      return argument.size() == 4 ? set_baud_rate(integer_of(argument)) : ready({});
    case kNotifyModemState:
      return tell_modem_state();
    case kFlowControlSuspend:
    case kFlowControlResume:
      suspend(code == kFlowControlSuspend);
      return ready({});
    default:
      return argument.size() == 1 ? execute(code, value) : ready({});
  }
}

ostra::future<payload> com_port_control::execute(std::uint8_t code, std::uint8_t value) {
  switch (code) {
    case kSetDataSize:
    case kSetParity:
    case kSetStopSize:
      return set_size(code, value);
    case kSetControl:
      return set_control(value);
    case kSetLineStateMask:
    case kSetModemStateMask:
      return ready(set_mask(code, value));
    case kPurgeData:
      return purge(value);
    default:
      return ready({});
  }
}

payload com_port_control::own_signature() const {
  payload bytes = {std::byte{kSignature + kToClient}};
  std::ranges::transform(signature_, std::back_inserter(bytes),
                         [](char character) { return std::byte(character); });
  return bytes;
}

ostra::future<payload> com_port_control::set_baud_rate(std::uint32_t rate) {
  if (rate != kQuery && rate != settings_.line.baud_rate.BaudRate) {
    auto set = accepted(line_.controls().set_baud_rate(rate));
    const bool accepted = co_await set;
    if (accepted)
      settings_.line.baud_rate.BaudRate = rate;
  }
  const std::uint32_t present = settings_.line.baud_rate.BaudRate;
  payload bytes = {std::byte{kSetBaudRate + kToClient}};
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes.push_back(static_cast<std::byte>(present >> shift));
  co_return bytes;
}

ostra::future<payload> com_port_control::set_size(std::uint8_t command, std::uint8_t value) {
  const size_row& row = size_row_of(command);
  const auto wanted = std::ranges::find(row.codes, value, &code_pair::option);
  if (wanted != row.codes.end() && wanted->driver != settings_.line.control.*row.member) {
    SERIAL_LINE_CONTROL line = settings_.line.control;
    line.*row.member = wanted->driver;
    auto set = accepted(line_.controls().set_line_control(as_driver_takes_it(line)));
    const bool accepted = co_await set;
    if (accepted)
      settings_.line.control = line;
  }
  co_return answer(command, option_code(row.codes, settings_.line.control.*row.member));
}

ostra::future<payload> com_port_control::set_control(std::uint8_t value) {
  for (const signal& row : kSignals) {
    if (value == row.query)
      return ready(signal_state(row));
    if (row.has(value))
      return set_signal(row, value == row.query + 1);
  }
  if (value == kFlowNone || value == kFlowXonXoff || value == kFlowRtsCts)
    return set_flow(value);
  return ready(flow_state(value));
}

payload com_port_control::signal_state(const signal& asked) const {
  const int code = asked.query + (settings_.*asked.state ? 1 : 2);
  return answer(kSetControl, static_cast<std::uint8_t>(code));
}

// Answers queries, and requests for kinds of flow control that are not supported.
payload com_port_control::flow_state(std::uint8_t value) const {
  const auto kind = static_cast<UCHAR>(settings_.line.flow);
  const std::uint8_t flow = option_code(kFlows, kind);
  switch (value) {
    case kQueryFlow:
    case kFlowDcd:
    case kFlowDsr:
      return answer(kSetControl, flow);
    case kQueryInputFlow:
    case kInputFlowNone:
    case kInputFlowXonXoff:
    case kInputFlowRtsCts:
    case kInputFlowDtr:
      return answer(kSetControl, static_cast<std::uint8_t>(flow - kFlowNone + kInputFlowNone));
    default:
      return {};
  }
}

ostra::future<payload> com_port_control::set_flow(std::uint8_t value) {
  const auto row = std::ranges::find(kFlows, value, &code_pair::option);
  const auto kind = static_cast<flow_control>(row->driver);
  auto set = accepted(line_.controls().set_flow_control(kind));
  const bool accepted_by_device = co_await set;
  if (accepted_by_device)
    settings_.line.flow = kind;
  co_return flow_state(kQueryFlow);
}

// A port that lacks a signal, such as one of a virtual machine, leaves every request for it without
// an answer. Programs that set the signal all the same must work with such a port too.
ostra::future<payload> com_port_control::set_signal(const signal& changed, bool on) {
  auto set = accepted((line_.controls().*changed.set)(on));
  const bool accepted_by_device = co_await set;
  if (accepted_by_device || !line_.controls().has_answered(changed.device_code))
    settings_.*changed.state = on;
  co_return signal_state(changed);
}

ostra::future<void> com_port_control::send_break() {
  settings_.break_on = true;  // for end_break(), in case the client goes meanwhile
  try {
    auto sent = line_.controls().send_break(break_time_);
    co_await sent;
    settings_.break_on = false;
  } catch (const client_error&) {
    settings_.break_on = line_.controls().has_answered(IOCTL_SERIAL_SET_BREAK_ON);
  } catch (const ostra::timer_cancelled&) {
    // The session ends.
  }
}

ostra::future<void> com_port_control::end_break() {
  if (!settings_.break_on)
    co_return;
  auto ended = accepted(line_.controls().set_break(false));
  co_await ended;
  settings_.break_on = false;
}

ostra::future<payload> com_port_control::purge(std::uint8_t value) {
  if (value < kPurgeInput || value > kPurgeBoth)
    co_return payload();
  const purged what = value == kPurgeInput    ? purged::input
                      : value == kPurgeOutput ? purged::output
                                              : purged::both;
  if (what != purged::output)
    ++input_purges_;
  auto done = accepted(line_.purge(what));
  co_await done;
  co_return answer(kPurgeData, value);
}

void com_port_control::suspend(bool suspended) {
  if (suspended)
    flowing_.reset();
  if (!suspended || closed_)
    flowing_.set();
}

void com_port_control::close() {
  closed_ = true;
  flowing_.set();
  break_time_.cancel();
}

payload com_port_control::set_mask(std::uint8_t command, std::uint8_t value) {
  if (command == kSetLineStateMask)
    notices_.set_line_mask(value);
  else
    notices_.set_modem_mask(value);
  return answer(command, value);
}

ostra::future<std::uint32_t> com_port_control::modem_status() {
  std::uint32_t status = 0;
  try {
    auto asked = line_.controls().modem_status();
    status = co_await asked;
  } catch (const client_error&) {
    // The device does not report them.
  }
  co_return status;
}

ostra::future<payload> com_port_control::tell_modem_state() {
  auto asked = modem_status();
  const std::uint32_t status = co_await asked;
  co_return notices_.requested_modem_state(status);
}

}  // namespace tarnwheel::client
