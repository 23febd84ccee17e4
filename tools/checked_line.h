// Calls to a remote serial port whose outcome is to be checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "async/future.h"
#include "client/line/server_connection.h"
#include "format/format.h"
#include "platform/serial.h"

namespace tarnwheel::tools {

using bytes = std::vector<std::byte>;

// Why a check failed.
struct check_failure {
  std::wstring reason;
};

inline constexpr DWORD kAnswerLimit = 1500;  // milliseconds, for what a device does at once
inline constexpr DWORD kNoAnswer = 500;      // milliseconds after which none is to be expected

// Asks `condition` again and again until it holds; false when it does not within `milliseconds`.
template <class Condition>
[[nodiscard]] bool comes_to_hold(Condition condition, DWORD milliseconds) {
  const ULONGLONG deadline = ::GetTickCount64() + milliseconds;
  while (!condition()) {
    if (::GetTickCount64() > deadline)
      return false;
    ::Sleep(2);
  }
  return true;
}

template <class T>
[[nodiscard]] bool ends_within(const ostra::future<T>& call, DWORD milliseconds) {
  return comes_to_hold([&] { return call.is_complete(); }, milliseconds);
}

inline bytes integers(std::initializer_list<std::uint32_t> values) {
  bytes result(values.size() * sizeof(std::uint32_t));
  std::memcpy(result.data(), values.begin(), result.size());
  return result;
}

// One port of a server, on a connection of its own. Used by one thread; what does not go well
// throws check_failure, and client_error when the server cannot be reached.
class checked_line {
 public:
  checked_line(std::wstring_view server, std::uint32_t number) : server_(server), number_(number) {}

  // Opens the port; gives the result's code.
  HRESULT open() { return result_of(server_.remote().OpenPort(number_), 10 * kAnswerLimit); }

  // Calls that may be left without an answer.
  [[nodiscard]] ostra::future<tether::bytes_result> start_control(std::uint32_t code,
                                                                  std::uint32_t output_size = 0,
                                                                  bytes input = {}) {
    return server_.remote().IoControl(code, output_size, std::move(input));
  }
  [[nodiscard]] ostra::future<tether::bytes_result> start_read(std::uint32_t size) {
    return server_.remote().Read(size);
  }

  // Calls that are answered within the limit.
  bytes control(std::uint32_t code, std::uint32_t output_size = 0, bytes input = {}) {
    return bytes_of(start_control(code, output_size, std::move(input)), kAnswerLimit);
  }
  std::uint32_t number(std::uint32_t code) {
    const bytes output = control(code, sizeof(std::uint32_t));
    const auto size = static_cast<std::uint32_t>(output.size());
    std::uint32_t value = 0;
    if (size != sizeof value)
      throw check_failure{tfmt::format(L"{0} bytes instead of 4", size)};
    std::memcpy(&value, output.data(), sizeof value);
    return value;
  }
  bytes read(std::uint32_t size) { return bytes_of(start_read(size), kAnswerLimit); }
  void write(bytes data, DWORD milliseconds = kAnswerLimit) {
    require_success(result_of(server_.remote().Write(std::move(data)), milliseconds));
  }

  // In milliseconds, as the driver takes them.
  void set_read_timeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant) {
    control(IOCTL_SERIAL_SET_TIMEOUTS, 0, integers({interval, multiplier, constant, 0, 0}));
  }

  // Reads until nothing has come for a quarter of a second.
  bytes read_all() {
    set_read_timeouts(0, 0, 250);
    bytes all;
    for (bytes piece = read(4096); !piece.empty(); piece = read(4096))
      all.insert(all.end(), piece.begin(), piece.end());
    return all;
  }

  // The bytes of a call, which must be answered.
  static bytes bytes_of(const ostra::future<tether::bytes_result>& call, DWORD milliseconds) {
    tether::bytes_result result = result_of(call, milliseconds);
    require_success(result.code);
    return std::move(result.bytes);
  }

 private:
  template <class T>
  static T result_of(const ostra::future<T>& call, DWORD milliseconds) {
    if (!ends_within(call, milliseconds))
      throw check_failure{tfmt::format(L"no answer within {0} ms", milliseconds)};
    try {
      return call.get();
    } catch (const ostra::hresult_error& error) {
      throw check_failure{tfmt::format(L"the connection ended ({0ub016xp})", error.code())};
    }
  }

  static void require_success(HRESULT code) {
    if (FAILED(code))
      throw check_failure{tfmt::format(L"refused ({0ub016xp})", code)};
  }

  client::server_connection server_;
  const std::uint32_t number_;
};

}  // namespace tarnwheel::tools
