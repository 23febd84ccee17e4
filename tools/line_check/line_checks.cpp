#include "tools/line_check/line_checks.h"

#include <algorithm>
#include <concepts>

#include "console/print.h"
#include "format/format.h"
#include "platform/serial.h"

namespace tarnwheel::tools {
namespace {

using client::bytes_of;
using console::print;
using console::standard_stream;

constexpr milliseconds kNoAnswer(500);        // after this none is expected
constexpr milliseconds kUserTimeout(60'000);  // for the user to pull or insert the plug
constexpr std::uint32_t kMax = 0xFFFFFFFF;
constexpr std::uint32_t kUnknownControl = 0x001B0FFC;
constexpr std::uint32_t kCts = 0x10;
constexpr std::uint32_t kDsr = 0x20;
constexpr std::uint32_t kDcd = 0x80;

// For messages.
constexpr std::uint32_t count(std::integral auto number) {
  return static_cast<std::uint32_t>(number);
}

void refuses_a_second_open(remote_port&, const place& place) {
  remote_port second(place);
  expect_code(second.open(), E_ACCESSDENIED);
}

void keeps_settings(remote_port& line, const place&) {
  const bytes even_seven = {std::byte{STOP_BITS_2}, std::byte{EVEN_PARITY}, std::byte{7}};
  const bytes none_eight = {std::byte{STOP_BIT_1}, std::byte{NO_PARITY}, std::byte{8}};
  for (const bytes& setting : {even_seven, none_eight}) {
    line.control(IOCTL_SERIAL_SET_LINE_CONTROL, 0, setting);
    expect(line.control(IOCTL_SERIAL_GET_LINE_CONTROL, 3) == setting, L"another line control");
  }
  for (const std::uint32_t rate : {9600u, 115200u}) {
    line.set(IOCTL_SERIAL_SET_BAUD_RATE, rate);
    expect_number(line.number(IOCTL_SERIAL_GET_BAUD_RATE), rate);
  }
  line.control(IOCTL_SERIAL_SET_HANDFLOW, 0, bytes_of(SERIAL_HANDFLOW{}));  // none
  line.read_all();  // bytes left by an earlier user
}

void keeps_timeouts(remote_port& line, const place&) {
  const struct {
    std::uint32_t interval, multiplier, constant;
    DWORD least, most;  // milliseconds
  } rows[] = {{kMax, 0, 0, 0, 150}, {0, 0, 300, 250, 1000}, {kMax, kMax, 300, 250, 1000}};
  for (const auto& row : rows) {
    line.set_read_timeouts(row.interval, row.multiplier, row.constant);
    const ULONGLONG start = ::GetTickCount64();
    expect(line.read(16).empty(), L"unexpected bytes");
    const auto took = static_cast<DWORD>(::GetTickCount64() - start);
    expect(took >= row.least && took <= row.most,
           tfmt::format(L"({0}, {1}, {2}) took {3} ms", row.interval, row.multiplier, row.constant,
                        took));
  }
}

void brings_bytes_back(remote_port& line, const place&) {
  bytes sent(4096);
  for (std::size_t i = 0; i < sent.size(); ++i)
    sent[i] = static_cast<std::byte>(i * 167 >> 4);
  line.write(sent);
  const bytes received = line.read_all();
  const auto same = count(std::ranges::mismatch(sent, received).in1 - sent.begin());
  expect(received == sent, tfmt::format(L"{0} bytes instead of {1}, the same up to {2}",
                                        count(received.size()), count(sent.size()), same));
}

void loops_modem_lines(remote_port& line, const place&) {
  const struct {
    std::uint32_t dtr, rts, status;
  } rows[] = {{IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_CLR_RTS, kDsr | kDcd},
              {IOCTL_SERIAL_CLR_DTR, IOCTL_SERIAL_SET_RTS, kCts},
              {IOCTL_SERIAL_CLR_DTR, IOCTL_SERIAL_CLR_RTS, 0},
              {IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_SET_RTS, kCts | kDsr | kDcd}};
  for (const auto& row : rows) {
    line.control(row.dtr);
    line.control(row.rts);
    const auto status = [&] { return line.number(IOCTL_SERIAL_GET_MODEMSTATUS) & ~0x4Fu; };
    if (!holds_within([&] { return status() == row.status; }, milliseconds(200)))
      expect_number(status(), row.status);
  }
}

pending start_wait(remote_port& line, std::uint32_t events) {
  line.set(IOCTL_SERIAL_SET_WAIT_MASK, events);
  auto wait = line.start_control(IOCTL_SERIAL_WAIT_ON_MASK, sizeof(std::uint32_t));
  expect(!ends_within(wait, milliseconds(100)), L"the wait ended before anything happened");
  return wait;
}

void expect_events(const remote_port& line, pending wait, std::uint32_t events) {
  expect(line.answer_of(std::move(wait)) == bytes_of(events), L"other events");
}

void reports_a_modem_line(remote_port& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_CTS);
  line.control(IOCTL_SERIAL_CLR_RTS);
  expect_events(line, std::move(wait), SERIAL_EV_CTS);
}

void reports_a_break(remote_port& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_BREAK);
  line.control(IOCTL_SERIAL_SET_BREAK_ON);
  ::Sleep(100);
  line.control(IOCTL_SERIAL_SET_BREAK_OFF);
  expect_events(line, std::move(wait), SERIAL_EV_BREAK);
  line.read_all();  // a break is received as a zero byte
}

void ends_a_wait_by_a_new_mask(remote_port& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_RING);
  line.set(IOCTL_SERIAL_SET_WAIT_MASK, 0);
  expect_events(line, std::move(wait), 0);
}

void reports_lost_bytes(remote_port& line, const place&) {
  constexpr std::size_t kSize = 0x10000;
  constexpr milliseconds kLimit(20'000);  // at 115200 baud it takes 6 s
  line.write(bytes(kSize, std::byte{0x55}), kLimit);
  ::Sleep(200);
  const bytes status = line.control(IOCTL_SERIAL_GET_COMMSTATUS, sizeof(SERIAL_STATUS));
  expect(!status.empty(), L"no status");
  const bool told = client::result_of<SERIAL_STATUS>(status).Errors &
                    (SERIAL_ERROR_OVERRUN | SERIAL_ERROR_QUEUEOVERRUN);
  const std::size_t lost = kSize - line.read_all().size();
  expect(lost == 0 || told,
         tfmt::format(L"{0} bytes were lost and no error is reported", count(lost)));
}

void leaves_a_refused_control_unanswered(remote_port& line, const place&) {
  const auto refused = line.start_control(kUnknownControl);
  expect(!ends_within(refused, kNoAnswer), L"an answer");
  line.number(IOCTL_SERIAL_GET_BAUD_RATE);
}

void leaves_an_aborted_read_unanswered(remote_port& line, const place&) {
  line.set_read_timeouts(0, 0, 0);
  const auto read = line.start_read(10);
  line.set(IOCTL_SERIAL_PURGE, SERIAL_PURGE_RXABORT);
  expect(!ends_within(read, kNoAnswer), L"an answer");
  brings_bytes_back(line, {});
}

constexpr line_check kChecks[] = {
    {L"another client is refused", refuses_a_second_open},
    {L"settings come back", keeps_settings},
    {L"reads end by their time-outs", keeps_timeouts},
    {L"bytes come back", brings_bytes_back},
    {L"modem lines follow DTR and RTS", loops_modem_lines},
    {L"a wait reports a modem line", reports_a_modem_line},
    {L"a wait reports a break", reports_a_break},
    {L"a new mask ends a wait", ends_a_wait_by_a_new_mask},
    {L"lost bytes are reported", reports_lost_bytes},
    {L"a refused control has no answer", leaves_a_refused_control_unanswered},
    {L"an aborted read has no answer", leaves_an_aborted_read_unanswered},
};

}  // namespace

std::span<const line_check> line_checks() {
  return kChecks;
}

void survives_unplugging(remote_port& line, const place& place) {
  line.set_read_timeouts(0, 0, 0);
  const auto wait = start_wait(line, SERIAL_EV_RING);
  const auto read = line.start_read(10);
  print(standard_stream::output, L"Unplug the device now.\n");
  const auto gone = [&] {
    return !ends_within(line.start_control(IOCTL_SERIAL_GET_BAUD_RATE, 4), kNoAnswer);
  };
  expect(holds_within(gone, kUserTimeout), L"it was not unplugged");
  expect(!wait.is_complete() && !read.is_complete(), L"an answer");
  remote_port other(place);
  const HRESULT refusal = other.open();
  expect_code(refusal, static_cast<HRESULT>(0x80070002));
  print(standard_stream::output, L"Plug it in again.\n");
  expect(holds_within([&] { return other.open() == S_OK; }, kUserTimeout), L"it cannot be opened");
}

}  // namespace tarnwheel::tools
