// The virtual serial port, and the far end of its line. Loaded by load_virtual_serial.sh.
#pragma once

#include <cstring>

#include "platform/serial.h"
#include "tests/support/raw_client.h"
#include "tests/virtual_serial/orders.h"

namespace system_test {

constexpr std::uint32_t kVirtualPort = TARNWHEEL_VIRTUAL_PORT;

// Orders the port about from construction to destruction; both set it up anew, and so end all that is
// pending. An order that the driver refuses throws std::runtime_error.
class VirtualPort {
 public:
  VirtualPort() {
    Require(orders_ && far_end_,
            "opening the virtual serial driver, which load_virtual_serial.sh loads,");
    Reset();
  }
  VirtualPort(const VirtualPort&) = delete;
  VirtualPort& operator=(const VirtualPort&) = delete;
  ~VirtualPort() { SetUp(true); }

  void Reset() { Require(SetUp(true), "setting up the virtual serial port"); }
  void LoopBack() { SetUp(false, false, true); }
  void Vanish() { SetUp(false, true); }
  void ComeBack() { SetUp(); }  // what is held ends as well
  // The port's modem status has these bits as well, and these events happen.
  void Change(std::uint32_t inputs, std::uint32_t events) {
    SetUp(false, false, false, 0, 0, 0, inputs, events);
  }
  // Strikes the next requests of a kind: they fail with an NTSTATUS, or are held for ever with 0.
  void Fault(std::uint32_t kind, std::uint32_t status, std::uint32_t times = 1) {
    SetUp(false, false, false, times, kind, status);
  }

  // The far end: sends as many bytes as there is room for, takes what has come since the last time,
  // and switches signals, such as SETDTR.
  std::size_t Send(const Bytes& bytes) {
    DWORD size = 0;
    ::WriteFile(far_end_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr);
    return size;
  }
  Bytes TakeReceived() {
    Bytes bytes(0x100000);
    DWORD size = 0;
    ::ReadFile(far_end_.get(), bytes.data(), 0x100000, &size, nullptr);
    bytes.resize(size);
    return bytes;
  }
  // True when it comes to have received this, and has then received nothing more.
  [[nodiscard]] bool Receives(const Bytes& expected) {
    Bytes all;
    return Eventually([&] {
             all = Join({all, TakeReceived()});
             return all.size() >= expected.size();
           }) &&
           all == expected;
  }
  void Signal(DWORD function) { ::EscapeCommFunction(far_end_.get(), function); }

  // What the driver has seen.
  [[nodiscard]] virtual_serial_state State() const {
    virtual_serial_state state = {};
    DWORD size = 0;
    Require(::DeviceIoControl(orders_.get(), ORDER_GET_STATE, nullptr, 0, &state, sizeof state,
                              &size, nullptr),
            "asking the virtual serial driver");
    return state;
  }
  // Both wait; false when it does not come about before the deadline.
  [[nodiscard]] bool HasPending(std::uint32_t count) const {
    return Eventually([&] { return State().pending == count; });
  }
  [[nodiscard]] bool IsClosed() const {
    return Eventually([this] { return State().open_handles == 0; });
  }

 private:
  static Tamrin::unique_file Open(const std::wstring& name) {
    return Tamrin::unique_file(::CreateFileW((LR"(\\.\)" + name).c_str(),
                                             GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                             OPEN_EXISTING, 0, nullptr));
  }

  bool SetUp(bool anew = false, bool vanished = false, bool loops_back = false,
             std::uint32_t faults = 0, std::uint32_t kind = 0, std::uint32_t status = 0,
             std::uint32_t inputs = 0, std::uint32_t events = 0) {
    virtual_serial_setup setup = {anew, vanished, loops_back, faults, kind, status, inputs, events};
    DWORD size = 0;
    return ::DeviceIoControl(orders_.get(), ORDER_SET_UP, &setup, sizeof setup, nullptr, 0, &size,
                             nullptr);
  }

  const Tamrin::unique_file orders_ = Open(VIRTUAL_SERIAL_NAME);
  const Tamrin::unique_file far_end_ = Open(L"COM" + std::to_wstring(kVirtualPort + 1));
};

}  // namespace system_test
