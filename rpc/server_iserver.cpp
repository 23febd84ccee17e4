#include "rpc/server_iserver.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "rpc/marshalling.h"

namespace tether {
namespace {

using request_ptr = std::shared_ptr<const Message>;

void write_code(payload_writer& result, HRESULT code) {
  result.write_integer(static_cast<std::uint32_t>(code));
}

void write_bytes_result(payload_writer& result, const bytes_result& outcome) {
  write_code(result, outcome.code);
  result.write_bytes(outcome.bytes);
}

// One method each: takes the arguments out of the request, which may be long and is given up then,
// calls the server and appends the result to the reply. The server and the reply are the caller's,
// who waits.

ostra::future<void> enumerate_ports(IServer_Remote& server, request_ptr, payload_writer& result) {
  auto call = server.EnumeratePorts();
  const auto ports = co_await call;
  result.write_integer(static_cast<std::uint32_t>(ports.size()));
  for (const auto& port : ports) {
    result.write_string(port.friendly_name);
    result.write_integer(port.number);
  }
}

ostra::future<void> open_port(IServer_Remote& server, request_ptr request, payload_writer& result) {
  payload_reader arguments(request->payload());
  auto call = server.OpenPort(arguments.read_integer());
  const HRESULT code = co_await call;
  write_code(result, code);
}

ostra::future<void> io_control(IServer_Remote& server, request_ptr request,
                               payload_writer& result) {
  payload_reader arguments(request->payload());
  const std::uint32_t code = arguments.read_integer();
  const std::uint32_t output_size = arguments.read_integer();
  auto input = arguments.read_bytes();
  request.reset();
  auto call = server.IoControl(code, output_size, std::move(input));
  const auto outcome = co_await call;
  write_bytes_result(result, outcome);
}

ostra::future<void> write(IServer_Remote& server, request_ptr request, payload_writer& result) {
  payload_reader arguments(request->payload());
  auto data = arguments.read_bytes();
  request.reset();
  auto call = server.Write(std::move(data));
  const HRESULT code = co_await call;
  write_code(result, code);
}

ostra::future<void> read(IServer_Remote& server, request_ptr request, payload_writer& result) {
  payload_reader arguments(request->payload());
  auto call = server.Read(arguments.read_integer());
  const auto outcome = co_await call;
  write_bytes_result(result, outcome);
}

struct method_row {
  ostra::future<void> (*serve)(IServer_Remote& server, request_ptr request, payload_writer& result);
  bool is_serial = false;
  bool is_barrier = false;
  std::size_t output_size_at = 0;  // where the size of the output stands in the payload
  bool has_output = false;
};

// Indexed by method.
constexpr std::array<method_row, 5> kMethods = {{
    {.serve = &enumerate_ports, .is_serial = true},
    {.serve = &open_port, .is_serial = true, .is_barrier = true},
    {.serve = &io_control, .output_size_at = 4, .has_output = true},
    {.serve = &write},
    {.serve = &read, .output_size_at = 0, .has_output = true},
}};

std::size_t output_size(const method_row& row, std::span<const std::byte> payload) noexcept {
  std::uint32_t size = 0;
  if (!row.has_output || payload.size() < row.output_size_at + sizeof size)
    return 0;
  std::memcpy(&size, payload.data() + row.output_size_at, sizeof size);
  return std::min(size, kMostOutput);
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
