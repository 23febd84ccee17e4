#include "client/fake_server.h"

#include <atomic>
#include <utility>

#include "async/errors.h"

namespace tarnwheel::client::test {
namespace {

std::wstring next_pipe_name() {
  static std::atomic<unsigned> count = 0;
  return L"client_test_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++count);
}

}  // namespace

ostra::future<std::vector<tether::port_record>> fake_device::EnumeratePorts() {
  co_return ports;
}

ostra::future<HRESULT> fake_device::OpenPort(std::uint32_t) {
  co_return open_outcome;
}

ostra::future<tether::bytes_result> fake_device::IoControl(std::uint32_t code, std::uint32_t,
                                                           std::vector<std::byte> input) {
  controls.push_back({code, std::move(input)});
  tether::bytes_result result;
  result.code = outcome;
  co_return result;
}

ostra::future<HRESULT> fake_device::Write(std::vector<std::byte> data) {
  if (write_fails)
    ostra::details::throw_win32(ERROR_GEN_FAILURE);
  written.insert(written.end(), data.begin(), data.end());
  co_return outcome;
}

ostra::future<tether::bytes_result> fake_device::Read(std::uint32_t) {
  tether::bytes_result result;
  result.code = outcome;
  if (always_more)
    result.bytes.resize(1);
  if (!coming.empty()) {
    result.bytes = std::move(coming.front());
    coming.pop_front();
  }
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
