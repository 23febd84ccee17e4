#include "tools/checked_line.h"

#include <cstring>
#include <utility>

#include "format/format.h"
#include "platform/serial.h"

namespace tarnwheel::tools {
namespace {

template <class T>
T result_of(const ostra::future<T>& call, DWORD milliseconds) {
  if (!ends_within(call, milliseconds))
    throw check_failure{tfmt::format(L"no answer within {0} ms", milliseconds)};
  try {
    return call.get();
  } catch (const ostra::hresult_error& error) {
    throw check_failure{tfmt::format(L"the connection ended ({0ub016xp})", error.code())};
  }
}

void require_success(HRESULT code) {
  if (FAILED(code))
    throw check_failure{tfmt::format(L"refused ({0ub016xp})", code)};
}

}  // namespace

bytes integers(std::initializer_list<std::uint32_t> values) {
  bytes result(values.size() * sizeof(std::uint32_t));
  std::memcpy(result.data(), values.begin(), result.size());
  return result;
}

checked_line::checked_line(std::wstring_view server, std::uint32_t number)
    : server_(server), number_(number) {}

HRESULT checked_line::open() {
  return result_of(server_.remote().OpenPort(number_), 10 * kAnswerLimit);
}

ostra::future<tether::bytes_result> checked_line::start_control(std::uint32_t code,
                                                                std::uint32_t output_size,
                                                                bytes input) {
  return server_.remote().IoControl(code, output_size, std::move(input));
}

ostra::future<tether::bytes_result> checked_line::start_read(std::uint32_t size) {
  return server_.remote().Read(size);
}

ostra::future<HRESULT> checked_line::start_write(bytes data) {
  return server_.remote().Write(std::move(data));
}

bytes checked_line::bytes_of(const ostra::future<tether::bytes_result>& call, DWORD milliseconds) {
  tether::bytes_result result = result_of(call, milliseconds);
  require_success(result.code);
  return std::move(result.bytes);
}

bytes checked_line::control(std::uint32_t code, std::uint32_t output_size, bytes input) {
  return bytes_of(start_control(code, output_size, std::move(input)), kAnswerLimit);
}

std::uint32_t checked_line::number(std::uint32_t code) {
  const bytes output = control(code, sizeof(std::uint32_t));
  const auto size = static_cast<std::uint32_t>(output.size());
  std::uint32_t value = 0;
  if (size != sizeof value)
    throw check_failure{tfmt::format(L"{0} bytes instead of 4", size)};
  std::memcpy(&value, output.data(), sizeof value);
  return value;
}

bytes checked_line::read(std::uint32_t size, DWORD milliseconds) {
  return bytes_of(start_read(size), milliseconds);
}

void checked_line::write(bytes data, DWORD milliseconds) {
  require_success(result_of(start_write(std::move(data)), milliseconds));
}

void checked_line::set_read_timeouts(std::uint32_t interval, std::uint32_t multiplier,
                                     std::uint32_t constant) {
  control(IOCTL_SERIAL_SET_TIMEOUTS, 0, integers({interval, multiplier, constant, 0, 0}));
}

bytes checked_line::read_all() {
  set_read_timeouts(0, 0, 250);
  bytes all;
  for (bytes piece = read(4096); !piece.empty(); piece = read(4096))
    all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

}  // namespace tarnwheel::tools
