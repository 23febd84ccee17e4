#include "rpc/server_iserver.h"

#include <utility>

#include "rpc/marshalling.h"

namespace tether {
namespace {

void write_ports(payload_writer& result, const std::vector<port_record>& ports) {
  result.write_integer(static_cast<std::uint32_t>(ports.size()));
  for (const auto& port : ports) {
    result.write_string(port.friendly_name);
    result.write_integer(port.number);
  }
}

void write_code(payload_writer& result, HRESULT code) {
  result.write_integer(static_cast<std::uint32_t>(code));
}

void write_bytes_result(payload_writer& result, const bytes_result& outcome) {
  write_code(result, outcome.code);
  result.write_bytes(outcome.bytes);
}

}  // namespace

Server_IServer::Server_IServer(std::weak_ptr<IServer_Remote> server, Writer& writer) noexcept
    : server_(std::move(server)), writer_(writer.shared_from_this()) {}

ostra::future<void> Server_IServer::Dispatch(std::shared_ptr<const Message> request) const {
  const auto server = server_.lock();
  if (!server)
    co_return;
  const auto writer = writer_;
  const message_header header = request->header();
  payload_reader arguments(request->payload());
  const auto reply = std::make_shared<message_t>(header);
  payload_writer result(*reply);
  switch (static_cast<method>(header.method)) {
    case method::EnumeratePorts: {
      auto call = server->EnumeratePorts();
      const auto ports = co_await call;
      write_ports(result, ports);
      break;
    }
    case method::OpenPort: {
      const std::uint32_t number = arguments.read_integer();
      auto call = server->OpenPort(number);
      const HRESULT code = co_await call;
      write_code(result, code);
      break;
    }
    case method::IoControl: {
      const std::uint32_t code = arguments.read_integer();
      const std::uint32_t output_size = arguments.read_integer();
      auto input = arguments.read_bytes();
      auto call = server->IoControl(code, output_size, std::move(input));
      const auto outcome = co_await call;
      write_bytes_result(result, outcome);
      break;
    }
    case method::Write: {
      auto data = arguments.read_bytes();
      auto call = server->Write(std::move(data));
      const HRESULT code = co_await call;
      write_code(result, code);
      break;
    }
    case method::Read: {
      const std::uint32_t size = arguments.read_integer();
      auto call = server->Read(size);
      const auto outcome = co_await call;
      write_bytes_result(result, outcome);
      break;
    }
    default:
      co_return;
  }
  writer->Send(reply);
}

}  // namespace tether
