#include "tests/support/fake_server.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <span>
#include <utility>

#include "async/errors.h"
#include "platform/serial.h"

namespace tarnwheel::client::test {
namespace {

std::wstring next_pipe_name() {
  static std::atomic<unsigned> count = 0;
  return L"client_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++count);
}

template <class T>
std::vector<std::byte> bytes_of(const T& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  return {bytes.begin(), bytes.end()};
}

}  // namespace

ostra::future<std::vector<tether::port_record>> fake_device::EnumeratePorts() {
  co_return ports;
}

ostra::future<HRESULT> fake_device::OpenPort(std::uint32_t) {
  if (open_blocks) {
    auto never = never_.wait();
    co_await never;
  }
  co_return open_outcome;
}

void fake_device::send(std::string_view text) {
  {
    const std::lock_guard guard(lock_);
    const auto bytes = std::as_bytes(std::span(text));
    coming_.insert(coming_.end(), bytes.begin(), bytes.end());
  }
  byte_came_.set();
}

void fake_device::raise(std::uint32_t events) {
  {
    const std::lock_guard guard(lock_);
    events_ |= events;
  }
  event_came_.set();
}

std::vector<control_call> fake_device::controls() const {
  const std::lock_guard guard(lock_);
  return controls_;
}

std::size_t fake_device::count(std::uint32_t code) const {
  const std::lock_guard guard(lock_);
  return static_cast<std::size_t>(std::ranges::count(controls_, code, &control_call::code));
}

std::vector<std::byte> fake_device::written() const {
  const std::lock_guard guard(lock_);
  return written_;
}

std::vector<std::byte> fake_device::output_of(std::uint32_t code) {
  const std::lock_guard guard(lock_);
  if (code == IOCTL_SERIAL_WAIT_ON_MASK) {
    event_came_.reset();
    return bytes_of(std::exchange(events_, 0));
  }
  if (const auto found = outputs.find(code); found != outputs.end())
    return found->second;
  if (code != IOCTL_SERIAL_GET_COMMSTATUS)
    return {};
  SERIAL_STATUS status = {};
  status.AmountInInQueue = static_cast<ULONG>(coming_.size());
  return bytes_of(status);
}

ostra::future<tether::bytes_result> fake_device::IoControl(std::uint32_t code, std::uint32_t,
                                                           std::vector<std::byte> input) {
  {
    const std::lock_guard guard(lock_);
    controls_.push_back({code, std::move(input)});
  }
  if (unanswered.contains(code))
    ostra::details::throw_win32(ERROR_NOT_SUPPORTED);
  if (code == IOCTL_SERIAL_WAIT_ON_MASK && has_events) {
    auto event = event_came_.wait();
    co_await event;
  }
  tether::bytes_result result;
  result.code = outcome;
  result.bytes = output_of(code);
  co_return result;
}

ostra::future<HRESULT> fake_device::Write(std::vector<std::byte> data) {
  if (write_fails)
    ostra::details::throw_win32(ERROR_GEN_FAILURE);
  auto released = writes_.wait();
  co_await released;
  const std::lock_guard guard(lock_);
  written_.insert(written_.end(), data.begin(), data.end());
  co_return outcome;
}

ostra::future<tether::bytes_result> fake_device::Read(std::uint32_t size) {
  ++reads;
  if (read_fails)
    ostra::details::throw_win32(ERROR_GEN_FAILURE);
  auto byte = byte_came_.wait();
  co_await byte;
  tether::bytes_result result;
  result.code = outcome;
  const std::lock_guard guard(lock_);
  const auto taken = static_cast<std::ptrdiff_t>(std::min<std::size_t>(size, coming_.size()));
  result.bytes.assign(coming_.begin(), coming_.begin() + taken);
  coming_.erase(coming_.begin(), coming_.begin() + taken);
  if (coming_.empty())
    byte_came_.reset();
  co_return result;
}

fake_server::fake_server() : pipe_(next_pipe_name()) {
  accept();
}

fake_server::~fake_server() {
  cancellation_.cancel();
  for (const auto& client : clients_)
    client.wait();
}

void fake_server::accept() {
  auto transport = tether::PipeTransport::Create();
  transport->LinkCancellation(cancellation_);
  ostra::details::check_hresult(transport->Listen(pipe_, nullptr));
  clients_.push_back(serve(std::move(transport), device));
}

ostra::future<void> fake_server::serve(std::shared_ptr<tether::ITransport> transport,
                                       std::shared_ptr<fake_device> device) {
  auto connected = transport->WaitClient(false, nullptr);
  co_await connected;
  const auto client = std::make_shared<connection>(std::move(transport), tether::kServerCode,
                                                   std::weak_ptr<fake_device>(device));
  auto ended = client->Run();
  co_await ended;
}

}  // namespace tarnwheel::client::test
