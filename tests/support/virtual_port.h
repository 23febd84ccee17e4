// A virtual serial port and the far end of its line. load_virtual_serial.sh loads the driver.
#pragma once

#include "platform/serial.h"
#include "tests/support/raw_client.h"
#include "tests/virtual_serial/orders.h"

namespace system_test {

constexpr std::uint32_t kVirtualPort = TARNWHEEL_VIRTUAL_PORT;
constexpr std::uint32_t kLocalPort = TARNWHEEL_LOCAL_PORT;  // its pair's ends report to each other

inline Tamrin::unique_file OpenPort(std::uint32_t number, DWORD flags = 0) {
  return Tamrin::unique_file(::CreateFileW((LR"(\\.\COM)" + std::to_wstring(number)).c_str(),
                                           GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                           flags, nullptr));
}

// Controls the port from construction to destruction. Both reset it, and so end all its pending
// requests. Construction, Reset and State throw std::runtime_error if the driver refuses.
class VirtualPort {
 public:
  explicit VirtualPort(std::uint32_t number = kVirtualPort) : far_end_(OpenPort(number + 1)) {
    Require(!!far_end_, "opening the virtual serial port, which load_virtual_serial.sh loads,");
    Reset();
  }
  VirtualPort(const VirtualPort&) = delete;
  VirtualPort& operator=(const VirtualPort&) = delete;
  ~VirtualPort() { SetUp(true); }

  void Reset() { Require(SetUp(true), "setting up the virtual serial port"); }
  void LoopBack() { SetUp(false, false, true); }
  void Vanish() { SetUp(false, true); }
  void ComeBack() { SetUp(); }  // also ends held requests
  // The next `times` requests of a kind fail with the NTSTATUS, or with 0 are held until the port
  // is next set up.
  void Fault(std::uint32_t kind, std::uint32_t status, std::uint32_t times = 1) {
    SetUp(false, false, false, times, kind, status);
  }

  // The far end sends bytes, and takes up to 4 KiB of those that have arrived.
  void Send(const Bytes& bytes) {
    DWORD size = 0;
    ::WriteFile(far_end_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr);
  }
  Bytes TakeReceived() {
    Bytes bytes(0x1000, '\0');
    DWORD size = 0;
    ::ReadFile(far_end_.get(), bytes.data(), 0x1000, &size, nullptr);
    return bytes.substr(0, size);
  }
  // Waits until as many bytes have arrived as are expected; true if they are exactly those.
  [[nodiscard]] bool Receives(const Bytes& expected) {
    Bytes all;
    return Eventually([&] {
             all += TakeReceived();
             return all.size() >= expected.size();
           }) &&
           all == expected;
  }

  [[nodiscard]] HANDLE FarEnd() const { return far_end_.get(); }

  // The port's state as the driver sees it.
  [[nodiscard]] virtual_serial_state State() const {
    virtual_serial_state state = {};
    DWORD size = 0;
    Require(::DeviceIoControl(far_end_.get(), ORDER_GET_STATE, nullptr, 0, &state, sizeof state,
                              &size, nullptr),
            "asking the virtual serial driver");
    return state;
  }
  // Both wait; false if the condition does not hold before the deadline.
  [[nodiscard]] bool HasPending(std::uint32_t count) const {
    return Eventually([&] { return State().pending == count; });
  }
  [[nodiscard]] bool IsClosed() const {
    return Eventually([this] { return State().open_handles == 0; });
  }

 private:
  bool SetUp(bool anew = false, bool vanished = false, bool loops_back = false,
             std::uint32_t faults = 0, std::uint32_t kind = 0, std::uint32_t status = 0) {
    virtual_serial_setup setup = {anew, vanished, loops_back, faults, kind, status, 0, 0};
    DWORD size = 0;
    return ::DeviceIoControl(far_end_.get(), ORDER_SET_UP, &setup, sizeof setup, nullptr, 0, &size,
                             nullptr);
  }

  const Tamrin::unique_file far_end_;
};

}  // namespace system_test
