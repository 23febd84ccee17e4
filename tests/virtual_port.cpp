#include "tests/virtual_port.h"

#include <algorithm>
#include <cstring>

#include "tests/patience.h"

namespace system_test {
namespace {

constexpr std::size_t kLargestAnswer = 0x100000;

Tamrin::unique_file OpenOrders(std::uint32_t number) {
  const std::wstring path = LR"(\\.\)" VIRTUAL_SERIAL_NAME + std::to_wstring(number);
  Tamrin::unique_file orders(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
  Require(static_cast<bool>(orders),
          "opening the virtual serial driver, which load_virtual_serial.sh loads,");
  return orders;
}

Bytes Give(const Tamrin::unique_file& orders, virtual_serial_order order, Bytes input,
           std::size_t answer_size = 0) {
  Bytes answer(answer_size);
  DWORD size = 0;
  Require(::DeviceIoControl(orders.get(), static_cast<DWORD>(order), input.data(),
                            static_cast<DWORD>(input.size()), answer.data(),
                            static_cast<DWORD>(answer.size()), &size, nullptr),
          "an order to the virtual serial driver");
  answer.resize(size);
  return answer;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const DriverRequest& request) {
  return out << "request 0x" << std::hex << request.kind << std::dec << " of " << request.size
             << " bytes with " << Message{0, 0, 0, request.input};
}

VirtualPort::VirtualPort(std::uint32_t number) : orders_(OpenOrders(number)) {
  Reset();
}

VirtualPort::~VirtualPort() {
  DWORD size = 0;
  ::DeviceIoControl(orders_.get(), ORDER_RESET, nullptr, 0, nullptr, 0, &size, nullptr);
}

void VirtualPort::Reset() {
  Give(orders_, ORDER_RESET, {});
}

void VirtualPort::LoopBack() {
  Give(orders_, ORDER_LOOP_BACK, U32(1));
}

void VirtualPort::Receive(const Bytes& bytes) {
  Give(orders_, ORDER_RECEIVE, bytes);
}

Bytes VirtualPort::TakeSent() {
  return Give(orders_, ORDER_TAKE_SENT, {}, kLargestAnswer);
}

void VirtualPort::SetModemInputs(std::uint32_t inputs) {
  Give(orders_, ORDER_MODEM_INPUTS, U32(inputs));
}

void VirtualPort::RaiseEvents(std::uint32_t events, std::uint32_t errors) {
  Give(orders_, ORDER_INCIDENT, Join({U32(events), U32(errors)}));
}

void VirtualPort::Vanish() {
  Give(orders_, ORDER_CONNECT, U32(0));
}

void VirtualPort::ComeBack() {
  Give(orders_, ORDER_CONNECT, U32(1));
}

void VirtualPort::SetFault(std::uint32_t kind, std::uint32_t times, fault_effect effect,
                           std::uint32_t value) {
  Give(orders_, ORDER_FAULT, Join({U32(kind), U32(times), U32(effect), U32(value)}));
}

void VirtualPort::Fail(std::uint32_t kind, std::uint32_t ntstatus, std::uint32_t times) {
  SetFault(kind, times, FAULT_FAIL, ntstatus);
}

void VirtualPort::Cut(std::uint32_t kind, std::uint32_t size, std::uint32_t times) {
  SetFault(kind, times, FAULT_CUT, size);
}

void VirtualPort::Hold(std::uint32_t kind, std::uint32_t times) {
  SetFault(kind, times, FAULT_HOLD, 0);
}

void VirtualPort::HoldForGood(std::uint32_t kind, std::uint32_t times) {
  SetFault(kind, times, FAULT_HOLD_FOR_GOOD, 0);
}

void VirtualPort::Release() {
  Give(orders_, ORDER_RELEASE, {});
}

virtual_serial_state VirtualPort::State() const {
  virtual_serial_state state = {};
  const Bytes answer = Give(orders_, ORDER_GET_STATE, {}, sizeof(state));
  std::memcpy(&state, answer.data(), std::min(answer.size(), sizeof(state)));
  return state;
}

std::vector<DriverRequest> VirtualPort::TakeJournal() {
  constexpr std::size_t kEntrySize = sizeof(virtual_serial_entry);
  const Bytes answer = Give(orders_, ORDER_TAKE_JOURNAL, {}, kLargestAnswer);
  std::vector<DriverRequest> requests;
  for (std::size_t at = 0; at + kEntrySize <= answer.size(); at += kEntrySize) {
    virtual_serial_entry entry;
    std::memcpy(&entry, answer.data() + at, kEntrySize);
    requests.push_back({entry.kind, entry.size, Bytes(entry.data, entry.data + entry.data_size)});
  }
  return requests;
}

bool VirtualPort::ComesToHave(const PendingRequests& pending) const {
  return Eventually([&] {
    const virtual_serial_state state = State();
    return pending ==
           PendingRequests{state.pending_reads, state.pending_writes, state.pending_controls};
  });
}

bool VirtualPort::ComesToBeClosed() const {
  return Eventually([this] { return State().open_handles == 0; });
}

}  // namespace system_test
