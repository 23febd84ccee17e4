// A port whose calls are checked.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "async/future.h"
#include "client/line/control_bytes.h"
#include "client/line/server_connection.h"
#include "platform/serial.h"
#include "tools/line_check/expectations.h"

namespace tarnwheel::tools {

using bytes = std::vector<std::byte>;
using pending = ostra::future<tether::bytes_result>;
using std::chrono::milliseconds;

inline constexpr milliseconds kAnswerLimit(1500);  // for calls that a device answers at once

struct place {
  std::wstring server;
  std::uint32_t number;
};

inline bool ends_within(const pending& call, milliseconds limit) {
  return holds_within([&] { return call.is_complete(); }, limit);
}

// One port of a server, on its own connection; used by one thread. Calls that fail or are refused
// throw client_error or check_failure.
class remote_port {
 public:
  explicit remote_port(const place& place) : server_(place.server), number_(place.number) {}

  HRESULT open() { return wait(server_.remote().OpenPort(number_), 10 * kAnswerLimit); }

  // Calls that may remain unanswered.
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
  void set(std::uint32_t code, std::uint32_t value) { control(code, 0, client::bytes_of(value)); }
  std::uint32_t number(std::uint32_t code) {
    const bytes output = control(code, sizeof(std::uint32_t));
    expect(output.size() == sizeof(std::uint32_t), L"an answer that is not of 4 bytes");
    return client::result_of<std::uint32_t>(output);
  }
  bytes read(std::uint32_t size) { return answer_of(start_read(size)); }
  void write(bytes data, milliseconds limit = kAnswerLimit) {
    expect_code(wait(server_.remote().Write(std::move(data)), limit), S_OK);
  }

  // In milliseconds, as in SERIAL_TIMEOUTS.
  void set_read_timeouts(std::uint32_t interval, std::uint32_t multiplier, std::uint32_t constant) {
    const std::array<std::uint32_t, 5> timeouts = {interval, multiplier, constant};
    control(IOCTL_SERIAL_SET_TIMEOUTS, 0, client::bytes_of(timeouts));
  }

  // Reads until nothing has arrived for a quarter of a second.
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

}  // namespace tarnwheel::tools
