// A program that operates a line over Telnet.
#pragma once

#include <atomic>
#include <memory>

#include "client/bridge/bridge_session.h"
#include "client/telnet/com_port_control.h"
#include "client/telnet/telnet.h"

namespace tarnwheel::client {

// Turns the line's events into notices of errors and of changes of the modem lines.
class rfc2217_session final : public bridge_session {
 public:
  // `settings` are those of `line`; both must outlive this.
  rfc2217_session(std::shared_ptr<byte_stream> program, remote_line& line,
                  com_port_settings& settings);

  void close() noexcept override;

 private:
  ostra::future<void> begin() override;
  ostra::future<void> end() override;
  ostra::future<void> send(std::vector<std::byte> bytes) override;
  ostra::future<void> take(std::vector<std::byte> bytes) override;
  ostra::future<void> notify_of(std::uint32_t events) override;

  ostra::future<void> execute(std::vector<std::byte> command);
  ostra::future<void> send_notice(std::vector<std::byte> notice);

  telnet telnet_;
  com_port_control control_;

  std::atomic<bool> controls_port_ = false;
};

}  // namespace tarnwheel::client
