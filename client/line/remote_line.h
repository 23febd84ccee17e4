// A serial port of a server, opened for this client and operated without blocking.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "async/future.h"
#include "async/timer.h"
#include "client/line/line_controls.h"
#include "client/line/line_output.h"
#include "client/line/server_connection.h"

namespace tarnwheel::client {

// Receives a line's bytes and events on pool threads; received() and changed() may overlap.
class line_receiver {
 public:
  // Takes the bytes in the order of their arrival. The next read is sent when the future completes,
  // so a slow receiver holds up the sender at the far end, through the driver's buffer and the
  // line's flow control.
  virtual ostra::future<void> received(std::vector<std::byte> bytes) = 0;

  // `events` are the SERIAL_EV_* that have happened. The next wait is already in flight, so a query
  // of the device from here misses no change.
  virtual void changed(std::uint32_t events) = 0;

  // The line has ended by itself: the server has gone, or the device fails to respond. Called once
  // at most.
  virtual void ended(const client_error& reason) = 0;

 protected:
  ~line_receiver() = default;
};

// The driver completes a read without bytes after `driver`. A read still unanswered `patience`
// later has failed: a server leaves it without a reply.
struct read_limits {
  std::chrono::milliseconds driver{12'000};
  std::chrono::milliseconds patience{8000};
};

// A line, and its settings when opened.
struct line_address {
  std::wstring server;
  std::uint32_t port = 0;  // the N of COMN
  line_settings settings = {};
  std::wstring pipe{tether::kServerPipe};
  HANDLE stop = nullptr;  // unless null, an event that aborts the opening
  read_limits limits = {};
};

// One connection with one port, on which reads, writes, a wait for events and controls are in
// flight at the same time. The constructor and the destructor block and are called on the owner's
// thread, everything else on any thread. The line ends by itself (line_receiver::ended), with
// hang_up() or with the destructor; after that the receiver is no longer called. The destructor
// waits for a receiver call in progress, so the owner must first see to it that futures returned by
// received() complete.
class remote_line {
 public:
  // Connects, opens the port and sets it; throws client_error.
  explicit remote_line(const line_address& address);
  remote_line(const remote_line&) = delete;
  remote_line& operator=(const remote_line&) = delete;
  ~remote_line();

  // Such as "COM5".
  [[nodiscard]] const std::wstring& name() const noexcept { return name_; }

  // Starts reading, and waiting for `events` (SERIAL_EV_*; 0 for none) if the device knows them.
  // Call it once. `receiver` must outlive this.
  void start(line_receiver& receiver, std::uint32_t events);

  // Ends the line: everything that waits for it completes soon, and ended() is no longer called.
  void hang_up();

  // SERIAL_ERROR_* since the last call. Does not fail; must complete before the destructor runs.
  ostra::future<std::uint32_t> take_errors();

  // Settings and signals: each request has a limit, and its failure ends nothing else. For errors
  // use take_errors(): line_status() misses those that the line itself has already fetched.
  [[nodiscard]] line_controls& controls() noexcept { return controls_; }

  // Queues the bytes. Completes when there is room for more, or the line has ended; call again only
  // after that. Bytes that the device does not take in time end the line, unless flow control may
  // hold them up: then they wait without a limit.
  ostra::future<void> write(std::vector<std::byte> bytes) {
    return output_.write(std::move(bytes));
  }

  // Completes when the device has taken everything, or the line has ended. One waiter.
  ostra::future<void> drained() { return output_.drained(); }

  // Whether the line discards what is written to it, as it has ended or is about to. Tells the two
  // outcomes of write() and drained() apart.
  [[nodiscard]] bool has_ended() const { return output_.is_closed(); }

  // When the device last had bytes to take; now, if it still has some.
  [[nodiscard]] std::chrono::steady_clock::time_point busy_until() const {
    return output_.busy_until();
  }

  // Discards the queues, here and in the driver.
  ostra::future<void> purge(purged what);

 private:
  ostra::future<void> read();
  ostra::future<std::vector<std::byte>> read_some(std::uint32_t size);
  void note_errors(std::uint32_t errors);
  ostra::future<bool> has_modem_lines();
  ostra::future<void> wait_for_events(std::uint32_t events);
  ostra::future<void> watch_connection();
  ostra::future<void> watch_output();
  ostra::future<void> watch_device();
  void end(const client_error& reason);
  void stop();

  const read_limits limits_;
  server_connection server_;
  const std::wstring name_;
  line_controls controls_;
  line_output output_;
  ostra::async_timer heartbeat_;
  ostra::async_timer pause_;

  line_receiver* receiver_ = nullptr;  // set before the coroutines start, constant afterwards
  std::atomic<bool> ended_ = false;
  std::atomic<std::uint32_t> errors_ = 0;  // SERIAL_ERROR_* not yet taken

  // The coroutines that use the members above.
  std::vector<ostra::future<void>> running_;
};

}  // namespace tarnwheel::client
