// A serial port of a server, opened for this client.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/connected_server.h"
#include "client/line_settings.h"

namespace tarnwheel::client {

// Used by one thread, which blocks in its calls; everything throws client_error. A server has no
// call that closes a port: it closes with the connection, so one connection opens one port.
class remote_port {
 public:
  // Opens COM`number`. The server must outlive this.
  remote_port(connected_server& server, std::uint32_t number);

  [[nodiscard]] const std::wstring& name() const noexcept { return name_; }

  void set_line(const line_settings& settings);

  // From now on a read ends after `slice` (at least 1 ms), with what has come by then. A write has
  // no limit of the port's own.
  void set_read_slice(std::chrono::milliseconds slice);

  void write(std::vector<std::byte> data);

  // Up to `size` bytes; none when none came within the slice.
  [[nodiscard]] std::vector<std::byte> read(std::uint32_t size);

  // Reads until something has come and the line was then quiet for a slice, or until `limit` has
  // passed; the last slice may go beyond it.
  [[nodiscard]] std::vector<std::byte> read_until_quiet(std::chrono::milliseconds limit);

 private:
  template <class Settings>
  void control(std::uint32_t code, const Settings& settings);

  connected_server& server_;
  const std::wstring name_;
  std::uint64_t baud_rate_ = 0;  // 0 until it is set
  std::chrono::milliseconds slice_{0};
};

}  // namespace tarnwheel::client
