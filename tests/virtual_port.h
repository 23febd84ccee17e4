// A port of the virtual serial driver, and what is at the other end of its line.
#pragma once

#include <string>
#include <vector>

#include "platform/unique_resource.h"
#include "tests/virtual_serial/orders.h"
#include "tests/wire.h"

namespace system_test {

// Loaded by load_virtual_serial.sh.
constexpr std::uint32_t kVirtualPort = TARNWHEEL_VIRTUAL_PORT;
constexpr std::uint32_t kOtherVirtualPort = kVirtualPort + 1;

// A request that has reached the driver.
struct DriverRequest {
  std::uint32_t kind;  // request_kind or a control code
  std::uint32_t size;
  Bytes input;  // of a control, at most 24 bytes; the kind, as 4 bytes, of what is cancelled

  bool operator==(const DriverRequest&) const = default;
};
std::ostream& operator<<(std::ostream& out, const DriverRequest& request);

struct PendingRequests {
  std::uint32_t reads = 0;
  std::uint32_t writes = 0;
  std::uint32_t controls = 0;

  bool operator==(const PendingRequests&) const = default;
};

// Orders the port about from construction, which resets it, to destruction, which resets it again
// and so ends all that is pending. An order that the driver refuses throws std::runtime_error.
class VirtualPort {
 public:
  explicit VirtualPort(std::uint32_t number = kVirtualPort);
  VirtualPort(const VirtualPort&) = delete;
  VirtualPort& operator=(const VirtualPort&) = delete;
  ~VirtualPort();

  void Reset();

  // The line.
  void LoopBack();  // bytes, DTR to DSR and DCD, RTS to CTS
  void Receive(const Bytes& bytes);
  Bytes TakeSent();                           // what the port has sent since the last time
  void SetModemInputs(std::uint32_t inputs);  // modem_input
  void RaiseEvents(std::uint32_t events, std::uint32_t errors = 0);

  // The device.
  void Vanish();
  void ComeBack();

  // Faults, by kind of request: REQUEST_READ, REQUEST_WRITE or a control code.
  void Fail(std::uint32_t kind, std::uint32_t ntstatus, std::uint32_t times = 1);
  void Cut(std::uint32_t kind, std::uint32_t size, std::uint32_t times = 1);
  void Hold(std::uint32_t kind, std::uint32_t times = 1);
  void HoldForGood(std::uint32_t kind, std::uint32_t times = 1);  // no cancellation ends it
  void Release();                                                 // what is held goes on

  // What the driver has seen.
  [[nodiscard]] virtual_serial_state State() const;
  std::vector<DriverRequest> TakeJournal();  // the requests since the last time
  // Waits; false when it does not come about before the deadline.
  [[nodiscard]] bool ComesToHave(const PendingRequests& pending) const;
  [[nodiscard]] bool ComesToBeClosed() const;

 private:
  void SetFault(std::uint32_t kind, std::uint32_t times, fault_effect effect, std::uint32_t value);

  Tamrin::unique_file orders_;
};

}  // namespace system_test
