#include "client/remote_port.h"

#include <span>
#include <utility>

#include "client/client_error.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint32_t kReadSize = 4096;     // bytes
constexpr std::uint64_t kBitsOnTheLine = 12;  // of one byte, with start, parity and stop bits

constexpr known_cause kOpenCauses[] = {
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program or client, or is not shared"},
    {ERROR_SHARING_VIOLATION, L"{0} is in use by another program or client"},
    {ERROR_FILE_NOT_FOUND, L"{0} does not exist"},
};

}  // namespace

remote_port::remote_port(connected_server& server, std::uint32_t number)
    : server_(server), name_(tfmt::format(L"COM{0}", number)) {
  const HRESULT outcome = server_.wait(server_.remote().OpenPort(number), name_);
  if (FAILED(outcome))
    throw explain(outcome, name_, kOpenCauses);
}

template <class Settings>
void remote_port::control(std::uint32_t code, const Settings& settings) {
  const auto bytes = std::as_bytes(std::span(&settings, 1));
  const auto call = server_.remote().IoControl(code, 0, {bytes.begin(), bytes.end()});
  const tether::bytes_result result = server_.wait(call, name_);
  if (FAILED(result.code))
    throw explain(result.code, name_);
}

void remote_port::set_line(const line_settings& settings) {
  control(IOCTL_SERIAL_SET_BAUD_RATE, settings.baud_rate);
  control(IOCTL_SERIAL_SET_LINE_CONTROL, settings.control);
  baud_rate_ = settings.baud_rate.BaudRate;
}

void remote_port::set_read_slice(milliseconds slice) {
  // Only the total time-out has a value: the one combination that all drivers keep alike.
  SERIAL_TIMEOUTS timeouts = {};
  timeouts.ReadTotalTimeoutConstant = static_cast<ULONG>(slice.count());
  control(IOCTL_SERIAL_SET_TIMEOUTS, timeouts);
  slice_ = slice;
}

void remote_port::write(std::vector<std::byte> data) {
  auto limit = kCallLimit;
  if (baud_rate_ != 0)
    limit += milliseconds(data.size() * kBitsOnTheLine * 1000 / baud_rate_);
  const HRESULT outcome = server_.wait(server_.remote().Write(std::move(data)), name_, limit);
  if (FAILED(outcome))
    throw explain(outcome, name_);
}

std::vector<std::byte> remote_port::read(std::uint32_t size) {
  tether::bytes_result result =
      server_.wait(server_.remote().Read(size), name_, kCallLimit + slice_);
  if (FAILED(result.code))
    throw explain(result.code, name_);
  return std::move(result.bytes);
}

std::vector<std::byte> remote_port::read_until_quiet(milliseconds limit) {
  const auto deadline = steady_clock::now() + limit;
  std::vector<std::byte> all;
  while (steady_clock::now() < deadline) {
    const auto piece = read(kReadSize);
    if (piece.empty() && !all.empty())
      break;
    all.insert(all.end(), piece.begin(), piece.end());
  }
  return all;
}

}  // namespace tarnwheel::client
