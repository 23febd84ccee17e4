// Calls to a remote serial port whose outcome is to be checked.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "async/future.h"
#include "client/line/server_connection.h"
#include "platform/win32.h"

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

[[nodiscard]] bytes integers(std::initializer_list<std::uint32_t> values);

// One port of a server, on a connection of its own. Used by one thread; what does not go well
// throws check_failure, and client_error when the server cannot be reached.
class checked_line {
 public:
  checked_line(std::wstring_view server, std::uint32_t number);

  // Opens the port; gives the result's code.
  HRESULT open();

  // Calls that may be left without an answer.
  [[nodiscard]] ostra::future<tether::bytes_result> start_control(std::uint32_t code,
                                                                  std::uint32_t output_size = 0,
                                                                  bytes input = {});
  [[nodiscard]] ostra::future<tether::bytes_result> start_read(std::uint32_t size);
  [[nodiscard]] ostra::future<HRESULT> start_write(bytes data);

  // Calls that are answered within the limit.
  bytes control(std::uint32_t code, std::uint32_t output_size = 0, bytes input = {});
  std::uint32_t number(std::uint32_t code);
  bytes read(std::uint32_t size, DWORD milliseconds = kAnswerLimit);
  void write(bytes data, DWORD milliseconds = kAnswerLimit);

  // In milliseconds, as the driver takes them.
  void set_read_timeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant);

  // Reads until nothing has come for a quarter of a second.
  bytes read_all();

  // The bytes of a call, which must be answered.
  static bytes bytes_of(const ostra::future<tether::bytes_result>& call, DWORD milliseconds);

 private:
  client::server_connection server_;
  const std::uint32_t number_;
};

}  // namespace tarnwheel::tools
