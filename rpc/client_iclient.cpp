#include "rpc/client_iclient.h"

#include "rpc/marshalling.h"

namespace tether {
namespace {

using reply_future = ostra::future<std::shared_ptr<const Message>>;

HRESULT read_code(payload_reader& result) {
  return static_cast<HRESULT>(result.read_integer());
}

ostra::future<HRESULT> code_of(reply_future reply) {
  const auto message = co_await reply;
  payload_reader result(message->payload());
  co_return read_code(result);
}

ostra::future<bytes_result> bytes_of(reply_future reply) {
  const auto message = co_await reply;
  payload_reader result(message->payload());
  bytes_result outcome;
  outcome.code = read_code(result);
  outcome.bytes = result.read_bytes();
  co_return outcome;
}

ostra::future<std::vector<port_record>> ports_of(reply_future reply) {
  const auto message = co_await reply;
  payload_reader result(message->payload());
  std::vector<port_record> ports;
  for (std::uint32_t count = result.read_integer(); count != 0; --count) {
    port_record port;
    port.friendly_name = result.read_string();
    port.number = result.read_integer();
    ports.push_back(std::move(port));
  }
  co_return ports;
}

}  // namespace

std::shared_ptr<message_t> Client_IClient::NewRequest(method number) const {
  return connection_.NewRequest(static_cast<std::uint16_t>(number));
}

ostra::future<std::vector<port_record>> Client_IClient::EnumeratePorts() {
  return ports_of(connection_.Call(NewRequest(method::EnumeratePorts)));
}

ostra::future<HRESULT> Client_IClient::OpenPort(std::uint32_t number) {
  auto request = NewRequest(method::OpenPort);
  payload_writer arguments(*request);
  arguments.write_integer(number);
  return code_of(connection_.Call(std::move(request)));
}

ostra::future<bytes_result> Client_IClient::IoControl(std::uint32_t code, std::uint32_t output_size,
                                                      std::vector<std::byte> input) {
  auto request = NewRequest(method::IoControl);
  payload_writer arguments(*request);
  arguments.write_integer(code);
  arguments.write_integer(output_size);
  arguments.write_bytes(input);
  return bytes_of(connection_.Call(std::move(request)));
}

ostra::future<HRESULT> Client_IClient::Write(std::vector<std::byte> data) {
  auto request = NewRequest(method::Write);
  payload_writer arguments(*request);
  arguments.write_bytes(data);
  return code_of(connection_.Call(std::move(request)));
}

ostra::future<bytes_result> Client_IClient::Read(std::uint32_t size) {
  auto request = NewRequest(method::Read);
  payload_writer arguments(*request);
  arguments.write_integer(size);
  return bytes_of(connection_.Call(std::move(request)));
}

}  // namespace tether
