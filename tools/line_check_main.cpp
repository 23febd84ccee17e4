// Checks a server and a real serial line: tarnwheel-line-check SERVER PORT. The line's port has a
// plug that joins TX with RX, RTS with CTS, and DTR with DSR and DCD. Prints a row for each check;
// the exit code is the number of those that failed. With --unplug it checks only what happens when
// somebody unplugs the device, and says when to.
#include <algorithm>
#include <array>
#include <concepts>
#include <memory>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "app/command_line/numbers.h"
#include "client/line/client_error.h"
#include "client/line/control_bytes.h"
#include "client/line/server_connection.h"
#include "console/print.h"
#include "format/format.h"
#include "platform/serial.h"

namespace tarnwheel::tools {
namespace {

using client::bytes_of;
using console::print;
using console::standard_stream;
using bytes = std::vector<std::byte>;
using pending = ostra::future<tether::bytes_result>;
using std::chrono::milliseconds;

constexpr milliseconds kAnswerLimit(1500);  // for what a device does at once
constexpr milliseconds kNoAnswer(500);      // after which none is to be expected
constexpr std::uint32_t kMax = 0xFFFFFFFF;
constexpr std::uint32_t kUnknownControl = 0x001B0FFC;
constexpr std::uint32_t kCts = 0x10;
constexpr std::uint32_t kDsr = 0x20;
constexpr std::uint32_t kDcd = 0x80;
constexpr milliseconds kHandPatience(60'000);  // for somebody to pull a plug

struct place {
  std::wstring server;
  std::uint32_t number;
};

// Why a check failed.
struct check_failure {
  std::wstring reason;
};

// For messages.
constexpr std::uint32_t count(std::integral auto number) {
  return static_cast<std::uint32_t>(number);
}

void expect(bool holds, std::wstring_view what) {
  if (!holds)
    throw check_failure{std::wstring(what)};
}

void expect_number(std::uint32_t actual, std::uint32_t expected) {
  expect(actual == expected, tfmt::format(L"0x{0b16xp} instead of 0x{1b16xp}", actual, expected));
}

void expect_code(HRESULT actual, HRESULT expected) {
  expect_number(static_cast<std::uint32_t>(actual), static_cast<std::uint32_t>(expected));
}

// Asks `condition` again and again until it holds; false when it does not within `limit`.
template <class Condition>
bool comes_to_hold(Condition condition, milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline)
      return false;
    ::Sleep(2);
  }
  return true;
}

bool ends_within(const pending& call, milliseconds limit) {
  return comes_to_hold([&] { return call.is_complete(); }, limit);
}

// One port of a server, on a connection of its own, for one thread. What fails or is refused throws
// client_error or check_failure.
class checked_line {
 public:
  explicit checked_line(const place& place) : server_(place.server), number_(place.number) {}

  HRESULT open() { return wait(server_.remote().OpenPort(number_), 10 * kAnswerLimit); }

  // Calls that may be left without an answer.
  pending start_control(std::uint32_t code, std::uint32_t output_size = 0, bytes input = {}) {
    return server_.remote().IoControl(code, output_size, std::move(input));
  }
  pending start_read(std::uint32_t size) { return server_.remote().Read(size); }

  bytes answer_of(pending call) const {
    tether::bytes_result result = wait(std::move(call), kAnswerLimit);
    expect_code(result.code, S_OK);
    return std::move(result.bytes);
  }
  bytes control(std::uint32_t code, std::uint32_t output_size = 0, bytes input = {}) {
    return answer_of(start_control(code, output_size, std::move(input)));
  }
  void set(std::uint32_t code, std::uint32_t value) { control(code, 0, bytes_of(value)); }
  std::uint32_t number(std::uint32_t code) {
    const bytes output = control(code, sizeof(std::uint32_t));
    expect(output.size() == sizeof(std::uint32_t), L"an answer that is not of 4 bytes");
    return client::result_of<std::uint32_t>(output);
  }
  bytes read(std::uint32_t size) { return answer_of(start_read(size)); }
  void write(bytes data, milliseconds limit = kAnswerLimit) {
    expect_code(wait(server_.remote().Write(std::move(data)), limit), S_OK);
  }

  // In milliseconds, as the driver takes them.
  void set_read_timeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant) {
    const std::array<std::uint32_t, 5> timeouts = {interval, multiplier, constant};
    control(IOCTL_SERIAL_SET_TIMEOUTS, 0, bytes_of(timeouts));
  }

  // Reads until nothing has come for a quarter of a second.
  bytes read_all() {
    set_read_timeouts(0, 0, 250);
    bytes all;
    for (bytes piece = read(4096); !piece.empty(); piece = read(4096))
      all.insert(all.end(), piece.begin(), piece.end());
    return all;
  }

 private:
  template <class T>
  T wait(ostra::future<T> call, milliseconds limit) const {
    return server_.wait(std::move(call), client::port_name(number_), limit);
  }

  client::server_connection server_;
  const std::uint32_t number_;
};

void refuses_a_second_open(checked_line&, const place& place) {
  checked_line second(place);
  expect_code(second.open(), E_ACCESSDENIED);
}

void keeps_settings(checked_line& line, const place&) {
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
  line.read_all();  // what an earlier user has left
}

void keeps_timeouts(checked_line& line, const place&) {
  const struct {
    std::uint32_t interval, multiplier, constant;
    DWORD least, most;  // milliseconds
  } rows[] = {{kMax, 0, 0, 0, 150}, {0, 0, 300, 250, 1000}, {kMax, kMax, 300, 250, 1000}};
  for (const auto& row : rows) {
    line.set_read_timeouts(row.interval, row.multiplier, row.constant);
    const ULONGLONG start = ::GetTickCount64();
    expect(line.read(16).empty(), L"bytes that nobody has sent");
    const auto took = static_cast<DWORD>(::GetTickCount64() - start);
    expect(took >= row.least && took <= row.most,
           tfmt::format(L"({0}, {1}, {2}) took {3} ms", row.interval, row.multiplier, row.constant,
                        took));
  }
}

void brings_bytes_back(checked_line& line, const place&) {
  bytes sent(4096);
  for (std::size_t i = 0; i < sent.size(); ++i)
    sent[i] = static_cast<std::byte>(i * 167 >> 4);
  line.write(sent);
  const bytes received = line.read_all();
  const auto same = count(std::ranges::mismatch(sent, received).in1 - sent.begin());
  expect(received == sent, tfmt::format(L"{0} bytes instead of {1}, the same up to {2}",
                                        count(received.size()), count(sent.size()), same));
}

void loops_modem_lines(checked_line& line, const place&) {
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
    if (!comes_to_hold([&] { return status() == row.status; }, milliseconds(200)))
      expect_number(status(), row.status);
  }
}

pending start_wait(checked_line& line, std::uint32_t events) {
  line.set(IOCTL_SERIAL_SET_WAIT_MASK, events);
  auto wait = line.start_control(IOCTL_SERIAL_WAIT_ON_MASK, sizeof(std::uint32_t));
  expect(!ends_within(wait, milliseconds(100)), L"the wait ended before anything happened");
  return wait;
}

void expect_events(const checked_line& line, pending wait, std::uint32_t events) {
  expect(line.answer_of(std::move(wait)) == bytes_of(events), L"other events");
}

void tells_of_a_modem_line(checked_line& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_CTS);
  line.control(IOCTL_SERIAL_CLR_RTS);
  expect_events(line, std::move(wait), SERIAL_EV_CTS);
}

void tells_of_a_break(checked_line& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_BREAK);
  line.control(IOCTL_SERIAL_SET_BREAK_ON);
  ::Sleep(100);
  line.control(IOCTL_SERIAL_SET_BREAK_OFF);
  expect_events(line, std::move(wait), SERIAL_EV_BREAK);
  line.read_all();  // a break is received as a zero byte
}

void ends_a_wait_by_a_new_mask(checked_line& line, const place&) {
  auto wait = start_wait(line, SERIAL_EV_RING);
  line.set(IOCTL_SERIAL_SET_WAIT_MASK, 0);
  expect_events(line, std::move(wait), 0);
}

void tells_of_lost_bytes(checked_line& line, const place&) {
  constexpr std::size_t kSize = 0x10000;
  constexpr milliseconds kLimit(20'000);  // at 115200 baud it takes 6 s
  line.write(bytes(kSize, std::byte{0x55}), kLimit);
  ::Sleep(200);
  const bytes status = line.control(IOCTL_SERIAL_GET_COMMSTATUS, sizeof(SERIAL_STATUS));
  expect(!status.empty(), L"no status");
  const bool told = client::result_of<SERIAL_STATUS>(status).Errors &
                    (SERIAL_ERROR_OVERRUN | SERIAL_ERROR_QUEUEOVERRUN);
  const std::size_t lost = kSize - line.read_all().size();
  expect(lost == 0 || told, tfmt::format(L"{0} bytes were lost and no error is told", count(lost)));
}

void leaves_a_refused_control_unanswered(checked_line& line, const place&) {
  const auto refused = line.start_control(kUnknownControl);
  expect(!ends_within(refused, kNoAnswer), L"an answer");
  line.number(IOCTL_SERIAL_GET_BAUD_RATE);
}

void leaves_an_aborted_read_unanswered(checked_line& line, const place&) {
  line.set_read_timeouts(0, 0, 0);
  const auto read = line.start_read(10);
  line.set(IOCTL_SERIAL_PURGE, SERIAL_PURGE_RXABORT);
  expect(!ends_within(read, kNoAnswer), L"an answer");
  brings_bytes_back(line, {});
}

constexpr struct {
  const wchar_t* name;
  void (*run)(checked_line& line, const place& place);
} kChecks[] = {
    {L"another client is refused", refuses_a_second_open},
    {L"settings come back", keeps_settings},
    {L"reads end by their time-outs", keeps_timeouts},
    {L"bytes come back", brings_bytes_back},
    {L"modem lines follow DTR and RTS", loops_modem_lines},
    {L"a wait tells of a modem line", tells_of_a_modem_line},
    {L"a wait tells of a break", tells_of_a_break},
    {L"a new mask ends a wait", ends_a_wait_by_a_new_mask},
    {L"lost bytes are told", tells_of_lost_bytes},
    {L"a refused control has no answer", leaves_a_refused_control_unanswered},
    {L"an aborted read has no answer", leaves_an_aborted_read_unanswered},
};

// A device that is gone answers nothing that was under way, and is back for a new connection.
void survives_unplugging(checked_line& line, const place& place) {
  line.set_read_timeouts(0, 0, 0);
  const auto wait = start_wait(line, SERIAL_EV_RING);
  const auto read = line.start_read(10);
  print(standard_stream::output, L"Unplug the device now.\n");
  const auto gone = [&] {
    return !ends_within(line.start_control(IOCTL_SERIAL_GET_BAUD_RATE, 4), kNoAnswer);
  };
  expect(comes_to_hold(gone, kHandPatience), L"it was not unplugged");
  expect(!wait.is_complete() && !read.is_complete(), L"an answer");
  checked_line other(place);
  const HRESULT refusal = other.open();
  expect_code(refusal, static_cast<HRESULT>(0x80070002));
  print(standard_stream::output, L"Plug it in again.\n");
  expect(comes_to_hold([&] { return other.open() == S_OK; }, kHandPatience),
         L"it cannot be opened");
}

template <class Check>
int report(const wchar_t* name, Check check) {
  std::wstring reason;
  try {
    check();
  } catch (const check_failure& failure) {
    reason = failure.reason;
  } catch (const client::client_error& error) {
    reason = error.message();
  }
  const bool passed = reason.empty();
  print(standard_stream::output, tfmt::format(L"{0?<}PASS{0?|}FAIL{0?>}  {1}{2}{3}\n", passed, name,
                                              passed ? L"" : L": ", reason));
  return passed ? 0 : 1;
}

int check_line(const place& place, bool unplug) {
  auto line = std::make_unique<checked_line>(place);
  int failures = report(L"the port opens", [&] { expect_code(line->open(), S_OK); });
  if (failures != 0)
    return failures;
  if (unplug)
    failures += report(L"unplugging", [&] { survives_unplugging(*line, place); });
  else
    for (const auto& check : kChecks)
      failures += report(check.name, [&] { check.run(*line, place); });
  line.reset();
  return failures + report(L"the port is free again", [&] {
           checked_line next(place);
           expect(comes_to_hold([&] { return next.open() == S_OK; }, kAnswerLimit),
                  L"it cannot be opened");
         });
}

int run() {
  Tamrin::command_line options;
  const auto& unplug = options.add_flag(L"unplug");
  options.parse(::GetCommandLineW());
  if (options.positional().size() != 2)
    throw Tamrin::cmd_line_syntax_error("A server and a port are needed.");
  const place place = {std::wstring(options.positional()[0]),
                       Tamrin::parse_port(options.positional()[1])};
  return check_line(place, unplug.flag());
}

}  // namespace
}  // namespace tarnwheel::tools

int main() {
  constexpr int kNotChecked = 100;
  try {
    return tarnwheel::tools::run();
  } catch (const Tamrin::cmd_line_syntax_error&) {
    console::print(console::standard_stream::error,
                   L"Usage: tarnwheel-line-check SERVER PORT [--unplug]\n");
  } catch (const tarnwheel::client::client_error& error) {
    console::print(console::standard_stream::error, error.message() + L"\n");
  }
  return kNotChecked;
}
