// The client half of the binding: the server's methods as calls over a connection.
#pragma once

#include "rpc/connection.h"
#include "rpc/iserver_remote.h"

namespace tether {

// Each method sends its request and completes with the server's result. It fails with
// operation_cancelled when the connection ends first, and with kMalformedPayload when the reply
// cannot be parsed. A call that the server leaves without a reply fails only when the connection
// ends: callers that cannot wait that long set a time limit of their own.
class Client_IClient final : public IServer_Remote {
 public:
  // `connection` must outlive this object; the futures do not need it.
  explicit Client_IClient(IConnection& connection) noexcept : connection_(connection) {}

  ostra::future<std::vector<port_record>> EnumeratePorts() override;
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override;
  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t output_size,
                                        std::vector<std::byte> input) override;
  ostra::future<HRESULT> Write(std::vector<std::byte> data) override;
  ostra::future<bytes_result> Read(std::uint32_t size) override;

 private:
  IConnection& connection_;
};

}  // namespace tether
