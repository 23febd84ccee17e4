// A port of the virtual serial driver, and what is at the other end of its line.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "platform/unique_resource.h"
#include "tests/support/patience.h"
#include "tests/support/wire.h"
#include "tests/virtual_serial/orders.h"

namespace system_test {

// Loaded by load_virtual_serial.sh.
constexpr std::uint32_t kVirtualPort = TARNWHEEL_VIRTUAL_PORT;
constexpr std::uint32_t kOtherVirtualPort = kVirtualPort + 1;

// A request that has reached the driver.
struct DriverRequest {
  std::uint32_t kind;  // request_kind or a control code
  std::uint32_t size;
  Bytes input;  // of a control, at most 24 bytes

  bool operator==(const DriverRequest&) const = default;
};

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
  explicit VirtualPort(std::uint32_t number = kVirtualPort)
      : orders_(::CreateFileW((LR"(\\.\)" VIRTUAL_SERIAL_NAME + std::to_wstring(number)).c_str(),
                              GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                              nullptr)) {
    Require(static_cast<bool>(orders_),
            "opening the virtual serial driver, which load_virtual_serial.sh loads,");
    Reset();
  }
  VirtualPort(const VirtualPort&) = delete;
  VirtualPort& operator=(const VirtualPort&) = delete;
  ~VirtualPort() {
    DWORD size = 0;
    ::DeviceIoControl(orders_.get(), ORDER_RESET, nullptr, 0, nullptr, 0, &size, nullptr);
  }

  void Reset() {
    line_ = {};
    Give(ORDER_RESET, {});
  }

  // The line.
  void LoopBack() { SetLine(line_.loops_back, 1); }
  void SetModemInputs(std::uint32_t inputs) { SetLine(line_.inputs, inputs); }
  void Receive(const Bytes& bytes) { Give(ORDER_RECEIVE, bytes); }
  // What the port has sent since the last time.
  Bytes TakeSent() { return Give(ORDER_TAKE_SENT, {}, kLargestAnswer); }
  void RaiseEvents(std::uint32_t events, std::uint32_t errors = 0) {
    line_.events = events;
    SetLine(line_.errors, errors);
    line_.events = line_.errors = 0;
  }

  // The device.
  void Vanish() { SetLine(line_.vanished, 1); }
  void ComeBack() { SetLine(line_.vanished, 0); }

  // Strikes requests of a kind: REQUEST_READ, REQUEST_WRITE or a control code. FAULT_FAIL has an
  // NTSTATUS as its value, FAULT_CUT a size.
  void Fault(std::uint32_t kind, fault_effect effect, std::uint32_t value = 0,
             std::uint32_t times = 1) {
    Give(ORDER_FAULT, Join({U32(kind), U32(times), U32(effect), U32(value)}));
  }
  void Release() { Give(ORDER_RELEASE, {}); }  // what is held goes on

  // What the driver has seen.
  [[nodiscard]] virtual_serial_state State() const {
    virtual_serial_state state = {};
    const Bytes answer = Give(ORDER_GET_STATE, {}, sizeof state);
    std::memcpy(&state, answer.data(), answer.size());
    return state;
  }
  // The requests since the last time.
  std::vector<DriverRequest> TakeJournal() {
    const Bytes answer = Give(ORDER_TAKE_JOURNAL, {}, kLargestAnswer);
    std::vector<DriverRequest> requests;
    virtual_serial_entry entry;
    for (std::size_t at = 0; at < answer.size(); at += sizeof entry) {
      std::memcpy(&entry, answer.data() + at, sizeof entry);
      requests.push_back({entry.kind, entry.size, Bytes(entry.data, entry.data + entry.data_size)});
    }
    return requests;
  }
  // Both wait; false when it does not come about before the deadline.
  [[nodiscard]] bool ComesToHave(const PendingRequests& pending) const {
    return Eventually([&] {
      const auto state = State();
      return pending ==
             PendingRequests{state.pending_reads, state.pending_writes, state.pending_controls};
    });
  }
  [[nodiscard]] bool ComesToBeClosed() const {
    return Eventually([this] { return State().open_handles == 0; });
  }

 private:
  static constexpr std::size_t kLargestAnswer = 0x100000;

  void SetLine(std::uint32_t& field, std::uint32_t value) {
    field = value;
    Give(ORDER_LINE, Join({U32(line_.vanished), U32(line_.loops_back), U32(line_.inputs),
                           U32(line_.events), U32(line_.errors)}));
  }

  Bytes Give(virtual_serial_order order, Bytes input, std::size_t answer_size = 0) const {
    Bytes answer(answer_size);
    DWORD size = 0;
    Require(::DeviceIoControl(orders_.get(), static_cast<DWORD>(order), input.data(),
                              static_cast<DWORD>(input.size()), answer.data(),
                              static_cast<DWORD>(answer.size()), &size, nullptr),
            "an order to the virtual serial driver");
    answer.resize(size);
    return answer;
  }

  Tamrin::unique_file orders_;
  virtual_serial_line line_ = {};
};

}  // namespace system_test
