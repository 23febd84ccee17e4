#include "rpc/server_iserver.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "rpc/remote_methods.h"

namespace tether {
namespace {

struct method_row {
  decltype(&remote::Read::serve) serve;
  bool is_serial = false;
  bool is_barrier = false;
  std::size_t output_size_at = 0;  // offset of the output size in the payload
  bool has_output = false;
};

// Indexed by method.
constexpr std::array<method_row, 5> kMethods = {{
    {.serve = &remote::EnumeratePorts::serve, .is_serial = true},
    {.serve = &remote::OpenPort::serve, .is_serial = true, .is_barrier = true},
    {.serve = &remote::IoControl::serve, .output_size_at = 4, .has_output = true},
    {.serve = &remote::Write::serve},
    {.serve = &remote::Read::serve, .output_size_at = 0, .has_output = true},
}};

std::size_t output_size(const method_row& row, std::span<const std::byte> payload) noexcept {
  std::uint32_t size = 0;
  if (!row.has_output || payload.size() < row.output_size_at + sizeof size)
    return 0;
  std::memcpy(&size, payload.data() + row.output_size_at, sizeof size);
  return std::min(size, kMaxOutput);
}

}  // namespace

Server_IServer::Server_IServer(std::weak_ptr<IServer_Remote> server, Writer& writer) noexcept
    : server_(std::move(server)), writer_(writer.shared_from_this()) {}

RequestCost Server_IServer::CostOf(const Message& request) noexcept {
  RequestCost cost;
  cost.bytes = sizeof(message_header) + request.payload().size();
  const std::size_t method = request.header().method;
  if (method < kMethods.size()) {
    const method_row& row = kMethods[method];
    cost.bytes += output_size(row, request.payload());
    cost.is_serial = row.is_serial;
    cost.is_barrier = row.is_barrier;
  }
  return cost;
}

ostra::future<void> Server_IServer::Dispatch(std::shared_ptr<const Message> request,
                                             RequestLoad::Request place) const {
  const auto server = server_.lock();
  const message_header header = request->header();
  if (!server || header.method >= kMethods.size())
    co_return;
  const auto writer = writer_;
  auto reply = std::make_shared<message_t>(header);
  payload_writer result(*reply);
  auto serving = kMethods[header.method].serve(*server, std::move(request), result);
  co_await serving;
  writer->Send(std::move(reply), std::move(place));
}

}  // namespace tether
