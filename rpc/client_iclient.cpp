#include "rpc/client_iclient.h"

#include "rpc/remote_methods.h"

namespace tether {

ostra::future<std::vector<port_record>> Client_IClient::EnumeratePorts() {
  return remote::EnumeratePorts::call(connection_);
}

ostra::future<HRESULT> Client_IClient::OpenPort(std::uint32_t number) {
  return remote::OpenPort::call(connection_, number);
}

ostra::future<bytes_result> Client_IClient::IoControl(std::uint32_t code, std::uint32_t output_size,
                                                      std::vector<std::byte> input) {
  return remote::IoControl::call(connection_, code, output_size, input);
}

ostra::future<HRESULT> Client_IClient::Write(std::vector<std::byte> data) {
  return remote::Write::call(connection_, data);
}

ostra::future<bytes_result> Client_IClient::Read(std::uint32_t size) {
  return remote::Read::call(connection_, size);
}

}  // namespace tether
